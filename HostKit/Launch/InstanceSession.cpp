#include <HostKit/InstanceSession.h>

#include <HostKit/LaunchLock.h>

#include "ApplicationFolder.h"
#include "FileLock.h"
#include "InboxFlush.h"
#include "MasterSlot.h"

#include <Core/ObjectsPool.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QMetaMethod>
#include <QtCore/QPointer>

#include <utility>

/*
 * Two locks, both in the application's folder, both freed by the kernel with their holder.
 *
 * launch.lock is held while anything is decided: by a launch from before it looks for a master
 * until it has handed over or become one, and by the master that quits until it has given the port
 * back. So nobody hands over to a master that is about to go, and nobody waits for what else the
 * application does at its end.
 *
 * master.lock is held by the master for its whole life. Whoever holds launch.lock and can take this
 * one knows that no master lives, and that a port in the settings was left by a crash. Anybody may
 * be listening on it by now, and would be taken for the master: so it is cleared first.
 *
 * A launch that could not take launch.lock in time does without: should it become the master, it
 * waits for master.lock in the background.
 */

namespace HostKit {

using SingleInstance::SingleInstanceController;

namespace {

QString masterLockPath()
{
    return applicationFolder() + QLatin1String("/master.lock");
}

SingleInstanceController* findController()
{
    const QString name =
        QString::fromLatin1(SingleInstanceController::staticMetaObject.className());
    return qobject_cast<SingleInstanceController*>(
        Core::ObjectsPool::getInstance().find(name, false).second);
}

} // namespace

InstanceSession::InstanceSession(QObject* parent)
    : QObject(parent)
    , masterLock(std::make_unique<FileLock>())
{
    const LaunchLock launchLock;
    if (launchLock.isTaken())
        takeMasterLock();
    start();
    connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this,
            &InstanceSession::close);
}

InstanceSession::~InstanceSession()
{
    stop();
}

bool InstanceSession::takeMasterLock()
{
    *masterLock = FileLock::take(masterLockPath(), std::chrono::milliseconds(0));
    return masterLock->isTaken();
}

/* Decides, and keeps the master's lock as the master alone. */
void InstanceSession::start()
{
    const bool isSafe = !masterLock->isTaken() || clearPort();
    decided = isSafe ? startSingleInstance() : SingleInstanceStateFailed;
    SingleInstanceController* const controller = findController();
    if (!controller) {
        *masterLock = FileLock();
        return;
    }
    // The last holder may be about to go, or hang: have the lock as soon as it is free.
    if (!masterLock->isTaken())
        *masterLock = FileLock::request(masterLockPath());
    connect(controller, &SingleInstanceController::messageReceived, this,
            &InstanceSession::receive); // earlier ones are fetched when somebody connects
}

void InstanceSession::connectNotify(const QMetaMethod& signal)
{
    if (signal == QMetaMethod::fromSignal(&InstanceSession::argumentsReceived))
        QMetaObject::invokeMethod(this, &InstanceSession::receive, Qt::QueuedConnection);
}

/* One list at a time, so that a call from a slot's own event loop goes on where this one is. */
void InstanceSession::receive()
{
    hasTurned = true;
    collect();
    const QPointer<InstanceSession> session = this; // which a slot may delete
    while (session && hasListsToReceive())
        emit argumentsReceived(pending.takeFirst());
}

bool InstanceSession::hasListsToReceive() const
{
    return !pending.isEmpty()
        && isSignalConnected(QMetaMethod::fromSignal(&InstanceSession::argumentsReceived));
}

void InstanceSession::collect()
{
    SingleInstanceController* const controller = findController();
    if (!controller)
        return;
    static const QStringList noArguments(QStringLiteral(" ")); // as they are sent
    for (const QStringList& list : controller->takeMessages()) {
        if (!isFlushMark(list))
            pending.append(list == noArguments ? QStringList() : list);
    }
}

/*
 * The application is about to quit, and takes the controller with it. If there are lists to run it
 * for once more, it is the master again before anybody else launches.
 */
void InstanceSession::close()
{
    const bool wasRunning = std::exchange(isRunning, false);
    SingleInstanceController* const controller = findController();
    if (!controller)
        return;
    const LaunchLock launchLock;
    flushInbox(*controller);
    stop();
    // Without one of the locks somebody may have become the master meanwhile, and would get the
    // arguments of this process a second time.
    if (wasRunning && hasListsToReceive() && launchLock.isTaken() && takeMasterLock())
        start();
}

void InstanceSession::stop()
{
    collect();
    stopSingleInstance();
    *masterLock = FileLock();
}

int InstanceSession::run(const std::function<int()>& exec)
{
    const QPointer<InstanceSession> session = this; // which a slot may delete
    int result = 0;
    do {
        isRunning = true;
        hasTurned = false;
        QMetaObject::invokeMethod(this, &InstanceSession::receive, Qt::QueuedConnection);
        result = exec();
        if (!session)
            return result;
        if (isRunning) // a loop that is not the application's own tells nobody that it ends
            close();
        // A loop that returns without a turn receives nothing, and would be run for ever.
    } while (hasTurned && (findController() || hasListsToReceive()));
    close();
    return result;
}

} // namespace HostKit
