#pragma once

#ifdef SINGLEINSTANCE_WITHOUT_HOSTKIT
#error "libHostKit has all that is in libSingleInstance: link one of the two"
#endif

#include <HostKit/export.h>
#include <SingleInstanceController.h>

#include <QtCore/QMetaType>
#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <memory>

/*! A host for applications that have none, and what goes in front of the library. */
namespace HostKit {

class InstanceSessionPrivate;

/*!
    An application's part in running as a single instance, from its start to its end.

    \code
    QApplication application(argc, argv); // file names already absolute: see HostKit::Launch
    HostKit::InstanceSession session;
    if (session.state() == SingleInstanceStateSecondary)
        return 0;
    MainWindow window;
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived, &window,
                     &MainWindow::openFromOtherLaunch);
    return QApplication::exec();
    \endcode

    In front of the bare entry points it sees to what a host of its own would have to:
    - launches decide one after the other, so that two first ones do not both become master;
    - a launch after a crash does not hand its arguments to a stranger who listens on the port that
      the crashed master recorded: a lock that the kernel frees tells whether a master lives;
    - a master that lives and cannot be reached holds up a launch for two seconds, which then
      becomes the master in its place;
    - no list is lost on the way to the application, neither before it connects to the signal nor
      while it quits: what it has not received goes to the next process.

    Build it after the application object, with organisation and application name set, and use it
    in that thread alone; one at a time, and in all versions of the application that a user may run
    side by side: it takes a master without a session for a crashed one. It may be a child of a
    window, or be deleted by a slot.

    A child that is forked and runs no other program keeps the port and the locks for as long as it
    lives: should the application crash meanwhile, launches hand over to nobody. What QProcess
    starts does not.
*/
class HOSTKIT_EXPORT InstanceSession : public QObject {
    Q_OBJECT
    /*! What state() returns. */
    Q_PROPERTY(SingleInstanceState state READ state CONSTANT)

public:
    /*!
        Starts the session: calls startSingleInstance() while it holds the launch lock.

        Blocks as that does, after waiting up to 10 s for launches before it, and up to 2 s for a
        master that does not answer; a new master up to 2 s more, on a machine that is out of means.
        Behind a Launch it is up to 3 s more for arguments that take several messages, and 2 s for a
        desktop that does not answer; in a process that a session started, up to 3 s more for
        another master that is to have the lists.
        If a launch before it hangs, it goes on without the lock rather than keep the application
        from starting.

        Without an application object, in another thread than that object's, or beside another
        session, it warns, does nothing, and its state is Failed.
    */
    explicit InstanceSession(QObject* parent = nullptr);

    /*! Ends the session, as the end of the application does, if it has not ended yet. */
    ~InstanceSession() override;

    /*!
        Returns what startSingleInstance() returned; or Failed, if the settings name a port on which
        no master can be reached, and cannot be written; and where there is a Launch, if one
        argument is longer than a message can be, or a master did not take all of several lists. It
        stays what it was when the session ends.

        A process that a session started to receive what its predecessor had not is Secondary, too,
        if somebody else received that by then.
    */
    SingleInstanceState state() const;

    /*!
        Sets what the end of the session starts if lists are left: a program and its arguments, or
        an empty list for nothing.

        It is QCoreApplication::applicationFilePath() at first, without arguments. Set it where the
        application is started by another command: from an image that is mounted for each process,
        by an interpreter. The program has to build a session of the same application.
    */
    void setRestartCommand(const QStringList& command);

Q_SIGNALS:
    /*!
        Emitted in the application's thread for each list that another launch handed over, and once
        for each, in the order in which the operating system delivered them. That is the order of
        the launches, unless the master was held up in between. A list holds the arguments of that
        launch without the program path, and is empty if there were none (or a single space alone,
        which stands for none on the way).

        It is emitted by the event loop that runs, whichever that is, a list a turn, and never by a
        loop that was told to quit: QCoreApplication::quit(), the close of the last window and the
        like leave what is not received yet to the next process. (A loop that an application goes on
        to run by QCoreApplication::processEvents() after that looks as any other. Neither does
        anybody know that a window is bound to close while it asks "Save changes?": whoever wants to
        receive nothing any more destroys the session.) Lists wait until somebody is connected, and
        while the session's signals are blocked. A receiver in another thread, or with a queued
        connection, has to see for itself that it runs before the end. A slot may run an event loop
        of its own, such as a modal dialog's: further lists are then received from there.

        The session ends at QCoreApplication::aboutToQuit(), before the slots that were connected
        after it was built, so that whoever launches meanwhile need not wait for them; if nobody has
        been connected by then, the application was not ready for lists, and the session goes on
        until it is destroyed or the process exits. What nobody has received at its end is written
        to a file in the application's folder, and the application is started once more, detached
        and without arguments, to receive it first of all. If it cannot be started, or if this
        process took such lists itself and received none, or is the tenth in a row, each within a
        minute of the one before, the lists wait for the next launch, and a warning says so. (If a
        second master lives, which took the place of this one while it could not be reached, that
        one gets them at once; what it does not take in a second or two waits for the master after
        it.) The end takes some milliseconds; at worst it waits 10 s for launches that hang
        half-way, 1 s for what they sent, as long as stopSingleInstance(), and 3 s for another
        master that is to have the lists. exit() in the application's thread ends the session as
        well.

        On Wayland, XDG_ACTIVATION_TOKEN names the token of the launch by then, if it had one, as it
        has from a desktop's launcher and not from a terminal: from Qt 6.4 on,
        QWidget::activateWindow() and QWindow::requestActivate() bring a window to the front by it,
        once. Some compositors only mark the window, as sway does by default. What else can be done
        stands in the README.

        What a process had not received when it is killed is lost. So is what it took from the file:
        the next process removes it before the first list is emitted, lest a document that crashes
        the application be opened at each start for ever.
    */
    void argumentsReceived(const QStringList& arguments);

protected:
    /*! Has lists that came before received by the event loop. */
    void connectNotify(const QMetaMethod& signal) override;

private:
    friend class InstanceSessionPrivate;
    const std::unique_ptr<InstanceSessionPrivate> d;
};

} // namespace HostKit

Q_DECLARE_METATYPE(SingleInstanceState)
