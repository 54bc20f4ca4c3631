#ifndef SINGLEINSTANCECONTROLLER_H
#define SINGLEINSTANCECONTROLLER_H

/*!
    \file

    SingleInstance makes a Qt desktop application run as a single instance.

    The first process that calls startSingleInstance() becomes the master. Every later process hands
    its command-line arguments to the master over a loopback connection, brings the master's window
    to the foreground, and learns that it is a secondary. It should exit then.

    Before the first call, the host must
    - build its application object (QCoreApplication or a subclass), with the organisation and the
      application name by which its settings store distinguishes applications;
    - make relative paths among its arguments absolute: they are handed over unchanged, and the
      master has another working folder;
    - hold a lock between processes during startSingleInstance(), if two first launches may overlap.
      The library locks nothing between processes. Without the lock, two processes that start at the
      same moment can both become master, each on its own port. In libHostKit, Launch makes paths
      absolute, and Launch and InstanceSession take such a lock. Other hosts can use
      HostKit::LaunchLock, from SingleInstance::HostFunctions.

    A master must call stopSingleInstance() before main() returns, unless the application object has
    emitted aboutToQuit(). Otherwise its port stays recorded, as after a crash.

    What arrives comes from some local process. Treat it as untrusted input.

    The enumeration and the three functions are plain C. Only C++ has the class.
*/

/*! \cond */
#if defined(SINGLEINSTANCE_STATIC_DEFINE)
#define SINGLEINSTANCE_EXPORT
#elif !defined(SINGLEINSTANCE_EXPORT) /* the build of a DLL defines it */
#define SINGLEINSTANCE_EXPORT __attribute__((visibility("default")))
#endif
/*! \endcond */

/*!
    What a process is after arbitration. It has the size of an int.
*/
typedef enum SingleInstanceState {
    /*! Start was never called, or stop was called since. */
    SingleInstanceStateInactive = 0,
    /*! This process became the master. SingleInstanceController::isMasterProcess() returns whether
        its server still runs. */
    SingleInstanceStateMaster = 1,
    /*! The arguments were handed to a process that listens on the master's port. */
    SingleInstanceStateSecondary = 2,
    /*! The arguments are too long to hand over; or no master could be reached or started; or this
        process was the master and its server no longer runs. */
    SingleInstanceStateFailed = 3
} SingleInstanceState;

#ifdef __cplusplus
extern "C" {
#endif

/*!
    Decides what this process is, and returns it. getSingleInstanceState() then returns the same.

    - Thread: the host's main thread. Must not overlap with any other call of these three functions
      or of the static members of the class.
    - Blocks: for milliseconds if a master answers, or if there is none. At worst for two and a half
      minutes. There are two attempts: each tries to connect for 30 s by IPv6 and for 30 s by IPv4.
      The one that connects writes for up to 30 s, and raising the window takes up to 2 s. If the
      host's settings or log hang, waits for them. Runs no event loop.
    - Result: see #SingleInstanceState. Secondary means that a connection was made to a listening
      process. Nothing is acknowledged, and a write that failed is only logged.
    - Failures: returns Failed if the arguments take more than 65,535 bytes packed (4 bytes, and for
      each argument 4 bytes and 2 for each UTF-16 code unit). If there is no master, also returns
      Failed if the settings store cannot be written, if the machine has no loopback address to
      listen on, if the system cannot start a thread, or if in both attempts another process becomes
      master first and then cannot be reached. Every outcome is also a line in the host's log.
    - Called again: in a master, returns Master (or Failed if its server ended) and does nothing
      else. In any other process, runs the whole arbitration again.
*/
SINGLEINSTANCE_EXPORT SingleInstanceState startSingleInstance(void);

/*!
    Ends this process's role. If it is the master, stops its server and destroys the controller,
    with all argument lists that were not taken. May be called in any state, any number of times,
    also after aboutToQuit().

    - Thread: that of startSingleInstance().
    - Blocks: until the server thread has ended, usually for a millisecond. A slot that is connected
      directly to messageReceived(), the host's log, or its settings store may hang in that thread.
      After 10 s the thread is terminated. That takes effect at the next system call of the hanging
      code that is a cancellation point. If it makes none, this function waits until it returns.
    - Result: always SingleInstanceStateInactive.
*/
SINGLEINSTANCE_EXPORT SingleInstanceState stopSingleInstance(void);

/*!
    Returns what the last start or stop returned, and SingleInstanceStateInactive before the first.

    - Thread: that of startSingleInstance(). Never blocks, never fails.
*/
SINGLEINSTANCE_EXPORT SingleInstanceState getSingleInstanceState(void);

#ifdef __cplusplus
}

#include <QtCore/QList>
#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <memory>
#include <mutex>

class QByteArray;
class QThread;

/*! The library. */
namespace SingleInstance {

/*!
    The object through which a master receives argument lists.

    When this process becomes the master, start() creates the object and enters it in the host's
    object registry. A secondary has none. The host finds it there (Core/ObjectsPool.h) and never
    owns it:

    \code
    using SingleInstance::SingleInstanceController;

    if (SingleInstanceController::start() == SingleInstanceStateSecondary)
        return 0; // the master shows our documents
    const auto entry = Core::ObjectsPool::getInstance().find(
        QString::fromLatin1(SingleInstanceController::staticMetaObject.className()), false);
    if (auto* controller = qobject_cast<SingleInstanceController*>(entry.second)) {
        const auto openAll = [&window, controller] {
            for (const QStringList& arguments : controller->takeMessages())
                window.open(arguments);
        };
        QObject::connect(controller, &SingleInstanceController::messageReceived, &window, openAll);
        openAll(); // what came in between start() and connect()
    }
    \endcode

    If a list arrives before the signal is connected, no slot is called for it. Therefore read the
    inbox once right after connecting, as above.

    stop() destroys the controller. So does the application object's aboutToQuit(), if that comes
    first. Do not keep a pointer to it beyond that.
*/
class SINGLEINSTANCE_EXPORT SingleInstanceController : public QObject {
    Q_OBJECT

public:
    /*! The same as startSingleInstance(). */
    static SingleInstanceState start();

    /*! The same as stopSingleInstance(). */
    static SingleInstanceState stop();

    /*! The same as getSingleInstanceState(). */
    static SingleInstanceState getState();

    /*!
        Stops the master's server first, so that nothing arrives at a half-destroyed inbox. Discards
        all lists that were not taken. Runs in the thread that called start(). Blocks as stop()
        does.
    */
    ~SingleInstanceController() override;

    /*!
        Returns whether the master's server thread runs.

        Call it from the thread that called start(). Never blocks.
    */
    bool isMasterProcess();

    /*!
        Returns a copy of the inbox, oldest list first, and leaves the inbox as it is.

        A list holds the arguments of one launch, without the program path. A process without
        arguments sends one string of a single space. The inbox has no limit, and the end of the
        server does not clear it. Lists are in the order in which their connections were read. Those
        that arrive while the server thread is busy may change their order.

        Call it from any thread. Takes constant time. Nobody holds its lock for more than one
        append, copy or swap. While a copy is in use, the next append copies the list of lists.
        Throws std::system_error if the lock cannot be taken.
    */
    QList<QStringList> peekMessages();

    /*!
        Returns the whole inbox, oldest list first, and leaves it empty.

        Threads, time and failures are those of peekMessages(). Every list is returned once, even if
        several threads call.
    */
    QList<QStringList> takeMessages();

Q_SIGNALS:
    /*!
        Emitted once for each list, right after it was added to the inbox. No lock is held then.

        It is emitted in the master's server thread:
        - An automatic connection to an object of another thread queues the call to that thread. A
          slot may find that an earlier call has already taken the list.
        - A direct connection runs the slot in the server thread. There it holds up all further
          lists, and stop(). A connection to a functor without a receiver object is always direct.
        - With a blocking queued connection to the thread that calls stop(), the two threads wait
          for each other for ever.
    */
    void messageReceived();

private:
    SingleInstanceController();

    bool startMaster();
    void stopMaster();
    bool notifyMaster(const QByteArray& message);

    std::unique_ptr<QThread> serverThread;
    QList<QStringList> messages; // the inbox, guarded by messagesMutex
    std::mutex messagesMutex;
};

} // namespace SingleInstance

#endif /* __cplusplus */

#endif /* SINGLEINSTANCECONTROLLER_H */
