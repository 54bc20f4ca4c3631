#ifndef SINGLEINSTANCECONTROLLER_H
#define SINGLEINSTANCECONTROLLER_H

/*!
    \file

    SingleInstance makes a Qt desktop application run as a single instance.

    The first process that calls startSingleInstance() becomes the master. Every later one hands its
    command-line arguments to the master over a loopback connection, brings the master's window to
    the foreground and is told that it is a secondary; it is then expected to exit.

    Before the first call the host must
    - have built its application object (QCoreApplication or a subclass), with the organisation and
      application name by which its settings store tells applications apart;
    - have made relative paths among its arguments absolute: they are handed over as they stand, and
      the master's working folder is not the caller's;
    - hold a lock between processes around startSingleInstance() if two first launches may overlap.
      The library itself locks nothing between processes: without the lock, two processes that start
      at the same moment can both become master, each on its own port.
    libHostKit has an InstanceSession, which sees to all of this and more; for a host of its own
    there is its LaunchLock among the host functions.

    A master calls stopSingleInstance() before main() returns, unless the application object has
    announced the end by aboutToQuit(). Otherwise it ends as after a crash: its port stays recorded.

    What arrives was written by some local process. Treat it as untrusted input.

    The enumeration and the three functions are plain C; the class is seen by C++ alone.
*/

/*! \cond */
#if defined(SINGLEINSTANCE_STATIC_DEFINE)
#define SINGLEINSTANCE_EXPORT
#elif !defined(SINGLEINSTANCE_EXPORT) /* for a DLL it comes from the build */
#define SINGLEINSTANCE_EXPORT __attribute__((visibility("default")))
#endif
/*! \endcond */

/*!
    What a process is after arbitration. It has the size of an int.
*/
typedef enum SingleInstanceState {
    /*! Start was never called, or stop was called since. */
    SingleInstanceStateInactive = 0,
    /*! This process became the master. SingleInstanceController::isMasterProcess() tells whether
        its server still runs. */
    SingleInstanceStateMaster = 1,
    /*! The arguments were handed to a running master. */
    SingleInstanceStateSecondary = 2,
    /*! The arguments are too long to hand over, or no master could be reached and none started, or
        this process was the master and its server no longer runs. */
    SingleInstanceStateFailed = 3
} SingleInstanceState;

#ifdef __cplusplus
extern "C" {
#endif

/*!
    Decides what this process is and returns it; getSingleInstanceState() then says the same.

    - Thread: the host's main thread. Must not overlap with any other call of these three functions
      or of the static members of the class.
    - Blocks: milliseconds when a master answers, or when there is none. At worst two and a half
      minutes: each of two attempts to hand over gives up connecting after 30 s by IPv6 and 30 s by
      IPv4, the one that connects takes 30 s at most to write, and the desktop is given 2 s. Runs no
      event loop.
    - Result: see #SingleInstanceState. Secondary means that the arguments were delivered to the
      operating system of a process that accepted the connection; nothing is acknowledged.
    - Failures: arguments that take more than 65,535 bytes packed (4 bytes, and for every argument 4
      bytes and 2 for each UTF-16 code unit) give Failed. So does, where no master is found, a
      settings store that cannot be written, a machine without a loopback address to listen on, or
      somebody else who takes the master's place in the very moment, twice, and cannot be reached.
      Every outcome is also a line in the host's log.
    - Called again: in a master, returns Master (or Failed if its server ended) and does nothing
      else. In any other process, runs the whole arbitration again.
*/
SINGLEINSTANCE_EXPORT SingleInstanceState startSingleInstance(void);

/*!
    Ends this process's part: stops the master's server, if this process is the master, and destroys
    the controller together with all argument lists not yet taken. May be called in any state, any
    number of times, also after the application object announced that it is about to quit.

    - Thread: that of startSingleInstance().
    - Blocks: until the server thread has ended, normally a millisecond. A slot that is connected
      directly to messageReceived() and does not return holds it up. After 10 s the thread is
      terminated, which takes effect at the slot's next system call that can be cancelled; a slot
      that makes none is waited for, and so is a host's log or settings store that hangs there.
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

    start() makes it and enters it in the host's object registry when this process becomes the
    master; a secondary has none. The host finds it there (Core/ObjectsPool.h) and never owns it:

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

    The race that the caller can cause: a list that arrives before the connection is made has
    announced itself to nobody. Read the inbox once right after connecting, as above.

    The controller is destroyed by stop(), or when the application object has emitted aboutToQuit(),
    whichever comes first. Do not keep a pointer to it beyond that.
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
        Stops the master's server first, so that nothing arrives at a half-destroyed inbox, and
        discards all lists not yet taken. Runs in the thread that called start(); blocks as stop()
        does.
    */
    ~SingleInstanceController() override;

    /*!
        Returns true while the master's server thread runs.

        Call it from the thread that called start(). Never blocks.
    */
    bool isMasterProcess();

    /*!
        Returns a copy of the inbox, oldest list first, and leaves the inbox as it is.

        A list holds the arguments of one launch without the program path. A process started
        without arguments sends one string of a single space. The inbox has no bound and is not
        cleared when the server ends. Lists come in the order in which their connections were read:
        that of the launches, unless the server was held up meanwhile.

        Call it from any thread. Takes constant time under a lock that is held for no more than one
        append, copy or swap; the append behind a copy that is still in use copies the list of
        lists. Throws std::system_error if that lock cannot be taken.
    */
    QList<QStringList> peekMessages();

    /*!
        Returns the whole inbox, oldest list first, and leaves it empty.

        Threads, time and failures are those of peekMessages(). Every list is returned once,
        however many threads call.
    */
    QList<QStringList> takeMessages();

Q_SIGNALS:
    /*!
        Emitted once for each list, right after it was added to the inbox and while no lock is
        held.

        It is emitted in the master's server thread. An automatic connection to an object of
        another thread queues the call to that thread, so a slot may find that an earlier one has
        already taken the list. A direct connection, which one to a functor without a receiver
        object always is, runs the slot in the server thread, where it holds up the reception of all
        further lists, and stop() with it. A blocking queued connection to the thread that calls
        stop() keeps the two waiting for each other until stop() gives up.
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
