#include "Arbitration.h"

#include "AnswerChannel.h"
#include "Directories.h"
#include "Foreground.h"
#include "HandOff.h"
#include "LaunchSpool.h"
#include "MasterLock.h"
#include "MasterProbe.h"
#include "SettingsSlot.h"
#include "StartupNotification.h"
#include "SuccessorProcess.h"

#include <utility>

namespace HostKit {

using SingleInstance::readMasterPid;
using SingleInstance::readMasterPort;
using SingleInstance::writeMasterPort;

namespace {

constexpr int maxAttempts = 3; // a master may die between the look and the hand-off

enum class Master { None, Reachable, Unreachable, InOtherNetwork };

Master findMaster()
{
    if (!hasLivingMaster())
        return Master::None;
    const quint16 port = readMasterPort();
    if (port == 0)
        return Master::None;
    if (isMasterInOtherNetwork())
        return Master::InOtherNetwork;
    return isReachable(port) ? Master::Reachable : Master::Unreachable;
}

/* Launches would mistake a port that stays recorded for a master's. */
Decision toBeMaster(FileLock launchLock)
{
    if (readMasterPort() != 0)
        writeMasterPort(0);
    if (readMasterPort() == 0)
        return {Outcome::MasterToBe, std::move(launchLock), 0};
    qWarning("HostKit: this process cannot become master: the settings cannot be written");
    return {};
}

Decision failForOtherNetwork()
{
    qWarning("HostKit: the master lives in another network namespace and cannot be reached");
    return {};
}

Decision decideUnderLock(const LaunchMessage& launch, FileLock launchLock)
{
    for (int attempt = 0; attempt < maxAttempts; ++attempt) {
        const Master master = findMaster();
        if (master == Master::None)
            return toBeMaster(std::move(launchLock));
        if (master == Master::InOtherNetwork)
            return failForOtherNetwork();
        if (master == Master::Unreachable)
            break;
        if (handOff(launch))
            return {Outcome::HandedOver, {}, readMasterPid()};
    }
    qWarning("HostKit: the master on port %d cannot be reached: this process takes its place",
             readMasterPort());
    return toBeMaster(std::move(launchLock));
}

/*
 * The holder of the lock may have become master, and emptied the spool, just before this launch
 * came into it. So look again. If the launch is still in the spool, take it back and decide anew.
 */
Decision decideWithoutLock(const LaunchMessage& launch)
{
    if (!isMasterInOtherNetwork() && handOff(launch))
        return {Outcome::HandedOver, {}, readMasterPid()};
    const QString name = spool({launch});
    if (name.isEmpty())
        return {};
    FileLock launchLock = takeLaunchLock(std::chrono::milliseconds(0));
    const bool canDecide = launchLock.isTaken() || isReachable(readMasterPort());
    if (!canDecide || !unspool(name)) {
        qWarning("HostKit: the application is starting or hangs: the arguments wait for it");
        return {Outcome::Spooled, {}, 0};
    }
    if (launchLock.isTaken())
        return decideUnderLock(launch, std::move(launchLock));
    if (handOff(launch))
        return {Outcome::HandedOver, {}, readMasterPid()};
    return {spool({launch}).isEmpty() ? Outcome::Failed : Outcome::Spooled, {}, 0};
}

Decision decideForSpool(FileLock launchLock)
{
    if (launchLock.hasTimedOut() || !hasSpooled())
        return {Outcome::NothingToDo, {}, 0};
    const Master master = findMaster();
    if (master == Master::InOtherNetwork)
        return {Outcome::NothingToDo, {}, 0};
    if (master != Master::Reachable)
        return toBeMaster(std::move(launchLock));
    const QList<LaunchMessage> left = passOn(takeSpooled());
    if (!left.isEmpty() && !spool(left).isEmpty())
        qWarning("HostKit: launches wait for the next master: that on port %d takes no more",
                 readMasterPort());
    return {Outcome::NothingToDo, {}, 0};
}

} // namespace

Decision decide(const LaunchMessage& launch)
{
    static bool isFirst = true; // a later session of a successor is an ordinary one
    const bool startedForSpool = std::exchange(isFirst, false) && isSuccessor();
    FileLock launchLock = takeLaunchLock();
    if (startedForSpool)
        return decideForSpool(std::move(launchLock));
    if (launchLock.hasTimedOut())
        return decideWithoutLock(launch);
    return decideUnderLock(launch, std::move(launchLock));
}

void bringToFront(const QByteArray& startupId)
{
    SingleInstance::bringMasterToForeground();
    endStartup(startupId);
}

FileLock takeLaunchLock(std::chrono::milliseconds timeout)
{
    return FileLock::take(launchLockFile(), FileLock::Kind::Exclusive, timeout);
}

QList<LaunchMessage> passOn(const QList<LaunchMessage>& launches)
{
    if (launches.isEmpty() || findMaster() != Master::Reachable)
        return launches;
    int passed = 0;
    for (; passed < launches.size() && handOff(launches[passed]); ++passed) {
        if (const auto& channel = launches[passed].channel)
            channel->send({true, static_cast<qint32>(readMasterPid()), {}});
    }
    return launches.mid(passed);
}

} // namespace HostKit
