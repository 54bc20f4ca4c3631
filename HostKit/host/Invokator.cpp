#include <Core/Invokator.h>

#include <QtCore/QObject>

namespace Core {

void Invokator::invokeInCurrentThread(std::function<void()> function, QObject* context)
{
    QMetaObject::invokeMethod(context, std::move(function), Qt::QueuedConnection);
}

} // namespace Core
