#pragma once

#include <HostKit/InstanceSession.h>

#include "FileLock.h"
#include "IdleIteration.h"
#include "Inbox.h"

#include <memory>

#include <sys/types.h>

namespace HostKit {

struct Decision;

/*!
    The three parts of a session's life: InstanceSession.cpp opens it, Delivery.cpp hands launches to
    the application, Shutdown.cpp ends it and leaves to others what is left. The application's
    thread.
*/
class InstanceSessionPrivate {
public:
    explicit InstanceSessionPrivate(InstanceSession& owner);

    void open();
    void deliver();
    void close();

    SingleInstanceState state = SingleInstanceStateFailed;
    QStringList restartCommand;
    IdleIteration idle;
    bool wasConnected = false; // somebody, to a signal that delivers

private:
    const char* obstacle() const;
    static void setCurrent(InstanceSessionPrivate* session);
    void decideAlone();
    void start(Decision decision);
    void becomeMaster(SingleInstance::SingleInstanceController& controller);
    bool hasReceiver() const;
    QList<LaunchMessage> stopMaster();
    void startAnother() const;
    static void closeAtExit();

    static InstanceSessionPrivate* current; // the one that is open

    InstanceSession& session;
    const pid_t process; // a forked child has a copy of all this
    FileLock masterLock; // held for as long as this process is the master
    std::shared_ptr<Inbox> inbox; // a master's
    quint16 port = 0; // on which this process is the master
    bool tookSpooled = false; // launches of a process before
    bool hasDelivered = false;
};

} // namespace HostKit
