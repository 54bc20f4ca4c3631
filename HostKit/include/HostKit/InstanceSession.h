#pragma once

#include <SingleInstanceController.h>

#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <functional>
#include <memory>

/*! A host for applications that have none, and what goes in front of the library. */
namespace HostKit {

class FileLock;

/*!
    An application's part in running as a single instance, from its start to its end.

    \code
    QApplication application(argc, argv); // file arguments already absolute
    HostKit::InstanceSession session;
    if (session.state() == SingleInstanceStateSecondary)
        return 0;
    MainWindow window;
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived, &window,
                     &MainWindow::openFromOtherLaunch);
    return session.run(&QApplication::exec);
    \endcode

    In front of the bare entry points it sees to what a host of its own would have to:
    - launches decide one after the other, so that two first ones do not both become master;
    - a launch after a crash does not hand its arguments to a stranger who listens on the port that
      the crashed master recorded: a lock that the kernel frees tells whether a master lives;
    - no list is lost on the way to the application, neither before it connects to the signal nor
      while it quits.

    Build it after the application object, with organisation and application name set, and use it
    in that thread alone. One at a time, and in all versions of the application that a user may run
    side by side: it takes a master without a session for a crashed one. A process that ends without
    returning from run() ends as after a crash: what was handed over and not yet received is lost.

    A child that is forked and runs no other program keeps the port and the locks for as long as it
    lives: should the application crash meanwhile, launches hand over to nobody. What QProcess
    starts does not.
*/
class InstanceSession : public QObject {
    Q_OBJECT

public:
    /*!
        Starts the session: calls startSingleInstance() while it holds the launch lock.

        Blocks as that does, after waiting up to 10 s for launches before it. If one of those hangs,
        it goes on without the lock rather than keep the application from starting.
    */
    explicit InstanceSession(QObject* parent = nullptr);

    /*! Ends the session. Lists that nobody took are lost: let run() return before. */
    ~InstanceSession() override;

    /*!
        Returns what startSingleInstance() returned; or Failed, if it was not called because the
        settings name the port of a crashed master and cannot be written. It stays what it was
        when the application ends.
    */
    SingleInstanceState state() const { return decided; }

    /*!
        Runs the event loop \a exec until the application quits, and returns its last result.

        The session ends at QCoreApplication::aboutToQuit(), before the slots that were connected
        after it was built; the next launch becomes the master, however long they take. Let no other
        QCoreApplication::exec() come before this one: the session would end with it.

        If a list was handed over while the application was quitting, it is not lost: it is received
        as any other in another run of \a exec, behind those slots, which are called again at its
        end. The slot then has to show its window again, or to quit.

        Holds up the end by a few milliseconds. At worst it waits 10 s for launches that hang
        half-way, 1 s for what they sent, and then as long as stopSingleInstance(). Deleting the
        session from a slot is permitted: it ends then, and this returns with the event loop.
    */
    int run(const std::function<int()>& exec);

Q_SIGNALS:
    /*!
        Emitted in the application's thread for each list that another launch handed over, in the
        order in which they arrived, and once for each. A list holds the arguments of that launch
        without the program path, and is empty if there were none (or a single space alone, which
        stands for none on the way).

        Lists wait until somebody is connected; when the application ends without, they are lost. A
        slot may run an event loop of its own, such as a modal dialog's: further lists are then
        received from there.
    */
    void argumentsReceived(const QStringList& arguments);

protected:
    /*! Has lists that came before received by the event loop. */
    void connectNotify(const QMetaMethod& signal) override;

private:
    bool takeMasterLock();
    void start();
    void receive();
    bool hasListsToReceive() const;
    void collect();
    void close();
    void stop();

    SingleInstanceState decided = SingleInstanceStateInactive;
    std::unique_ptr<FileLock> masterLock; // held for as long as this process is the master
    QList<QStringList> pending; // taken from the inbox, not yet received
    bool isRunning = false; // in run(), and not closed since
    bool hasTurned = false; // the event loop, since it was run
};

} // namespace HostKit
