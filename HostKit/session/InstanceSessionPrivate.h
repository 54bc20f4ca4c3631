#pragma once

#include <HostKit/InstanceSession.h>

#include "FileLock.h"
#include "IdleIteration.h"
#include "PendingLaunches.h"

#include <memory>

#include <sys/types.h>

namespace HostKit {

struct Decision;

/*!
    A session's life in three files: InstanceSession.cpp opens it, Delivery.cpp delivers launches to
    the application, Shutdown.cpp ends it and leaves undelivered launches to another process. The
    application's thread.
*/
class InstanceSessionPrivate {
public:
    explicit InstanceSessionPrivate(InstanceSession& owner);

    void open();
    void deliver();
    void close();
    bool isConnected() const; // a slot, to one of the signals

    SingleInstanceState state = SingleInstanceStateFailed;
    QStringList restartCommand;
    IdleIteration idle;
    bool wasConnected = false;

private:
    const char* obstacle() const;
    static void setCurrent(InstanceSessionPrivate* session);
    void decideAlone();
    void start(Decision decision);
    void becomeMaster(SingleInstance::SingleInstanceController& controller);
    QList<LaunchMessage> stopMaster();
    void startAnother() const;
    static void closeAtExit();

    static InstanceSessionPrivate* current; // the open one

    InstanceSession& session;
    const pid_t process; // a forked child has a copy of all this
    FileLock masterLock; // held as long as this process is the master
    std::shared_ptr<PendingLaunches> pending; // only a master has one
    quint16 port = 0; // on which this master listens
    bool tookSpooled = false; // launches of a process before
    bool hasDelivered = false;
};

} // namespace HostKit
