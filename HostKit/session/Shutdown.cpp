#include "InstanceSessionPrivate.h"

#include "Arbitration.h"
#include "MessageSpool.h"
#include "Registry.h"
#include "Successor.h"

#include <QtCore/QThread>

#include <unistd.h>

namespace HostKit {

void InstanceSessionPrivate::close()
{
    if (current != this || ::getpid() != process)
        return;
    setCurrent(nullptr);
    if (!inbox)
        return;
    {
        const FileLock launchLock = takeLaunchLock();
        QList<LaunchMessage> left = stopMaster();
        if (launchLock.isTaken()) // another master took our place when we could not be reached
            left = passOn(left);
        if (!left.isEmpty())
            spool(left);
    }
    // Also what launches left for a master, since they waited in vain for this end.
    if (hasSpooled())
        startAnother();
}

/* Gives the port back. Returns what was handed over and not delivered. */
QList<LaunchMessage> InstanceSessionPrivate::stopMaster()
{
    if (SingleInstance::findController() && (port == 0 || !inbox->flush(port)))
        qWarning("HostKit: what was handed over last may be lost, the master cannot be reached");
    SingleInstance::SingleInstanceController::stop();
    masterLock = FileLock();
    return inbox->takeAll();
}

void InstanceSessionPrivate::startAnother() const
{
    const char* reason = nullptr;
    if (tookSpooled && !hasDelivered)
        reason = "has received none itself"; // or processes would start each other for ever
    else if (restartCommand.isEmpty())
        reason = "must not start another";
    else if (isLastSuccessor())
        reason = "is the tenth in a row that others came for while one was quitting";
    else if (!startSuccessor(restartCommand))
        reason = "cannot start another";
    if (reason)
        qWarning("HostKit: lists of arguments wait for the next launch: this process %s", reason);
}

void InstanceSessionPrivate::closeAtExit()
{
    if (current && current->session.thread() == QThread::currentThread())
        current->close();
}

} // namespace HostKit
