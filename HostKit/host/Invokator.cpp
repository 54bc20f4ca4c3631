#include <Core/Invokator.h>

#include <QtCore/QObject>

#include <utility>

namespace Core {

void Invokator::invokeInCurrentThread(std::function<void()> function, QObject* context)
{
    QMetaObject::invokeMethod(context, std::move(function), Qt::QueuedConnection);
}

} // namespace Core
