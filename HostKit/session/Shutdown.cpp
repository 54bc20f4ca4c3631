#include "InstanceSessionPrivate.h"

#include "Arbitration.h"
#include "LaunchSpool.h"
#include "Registry.h"
#include "SuccessorProcess.h"

#include <QtCore/QThread>

#include <unistd.h>

/* The end of a session. */

namespace HostKit {

void InstanceSessionPrivate::close()
{
    if (current != this || ::getpid() != process)
        return;
    setCurrent(nullptr);
    if (!pending)
        return;
    {
        const FileLock launchLock = takeLaunchLock();
        QList<LaunchMessage> left = stopMaster();
        if (launchLock.isTaken()) // another master may have taken the place of this one
            left = passOn(left);
        if (!left.isEmpty())
            spool(left);
    }
    // Also for launches that gave up waiting for this process to end, and are in the spool.
    if (hasSpooled())
        startAnother();
}

/* Gives the port back. Returns the launches that were not delivered. */
QList<LaunchMessage> InstanceSessionPrivate::stopMaster()
{
    if (SingleInstance::findController() && (port == 0 || !pending->flush(port)))
        qWarning("HostKit: the last launches may be lost: this master cannot be reached");
    SingleInstance::SingleInstanceController::stop();
    masterLock = FileLock();
    return pending->takeAll();
}

void InstanceSessionPrivate::startAnother() const
{
    const char* reason = nullptr;
    if (tookSpooled && !hasDelivered) // processes would start each other for ever
        reason = "has delivered none of those before";
    else if (restartCommand.isEmpty())
        reason = "must not start another";
    else if (isLastSuccessor())
        reason = "is the tenth in a row that was started for launches";
    else if (!startSuccessor(restartCommand))
        reason = "cannot start another";
    if (reason)
        qWarning("HostKit: launches wait until the application starts again: this process %s",
                 reason);
}

void InstanceSessionPrivate::closeAtExit()
{
    if (current && current->session.thread() == QThread::currentThread())
        current->close();
}

} // namespace HostKit
