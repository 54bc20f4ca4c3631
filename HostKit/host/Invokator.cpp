#include <Core/Invokator.h>

#include <QtCore/QObject>

#include <utility>

/* Runs functions in the event loop of an object's thread. */

namespace Core {

void Invokator::invokeInCurrentThread(std::function<void()> function, QObject* context)
{
    QMetaObject::invokeMethod(context, std::move(function), Qt::QueuedConnection);
}

} // namespace Core
