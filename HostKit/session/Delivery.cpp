#include "InstanceSessionPrivate.h"

#include "ActivationToken.h"
#include "ReceivedLaunchPrivate.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QMetaMethod>
#include <QtCore/QPointer>
#include <QtCore/QScopeGuard>

/* How a session delivers launches to the application. */

namespace HostKit {

bool InstanceSessionPrivate::isConnected() const
{
    static const auto arguments = QMetaMethod::fromSignal(&InstanceSession::argumentsReceived);
    static const auto launch = QMetaMethod::fromSignal(&InstanceSession::launchReceived);
    return session.isSignalConnected(arguments) || session.isSignalConnected(launch);
}

/* One launch an iteration: a slot may quit, or run a loop of its own that delivers the next one. */
void InstanceSessionPrivate::deliver()
{
    if (!pending || pending->isEmpty() || !isConnected() || session.signalsBlocked())
        return;
    hasDelivered = true;
    const LaunchMessage message = pending->takeFirst();
    const ReceivedLaunch launch(std::make_shared<ReceivedLaunchPrivate>(message));
    if (!pending->isEmpty())
        idle.request();
    const QByteArray token = message.activationToken;
    exportToEnvironment(token);
    // After all slots, also queued ones.
    const auto clear = qScopeGuard([token] {
        QMetaObject::invokeMethod(
            QCoreApplication::instance(), [token] { removeFromEnvironment(token); },
            Qt::QueuedConnection);
    });
    QPointer<InstanceSession> receiver(&session); // a slot may delete it
    Q_EMIT receiver->launchReceived(launch);
    if (receiver)
        Q_EMIT receiver->argumentsReceived(launch.arguments());
}

void InstanceSession::connectNotify(const QMetaMethod& /*signal*/)
{
    d->wasConnected = d->wasConnected || d->isConnected();
    d->idle.request();
}

} // namespace HostKit
