#pragma once

#ifdef SINGLEINSTANCE_WITHOUT_HOSTKIT
#error "libHostKit has all that is in libSingleInstance: link one of the two"
#endif

#include <HostKit/ReceivedLaunch.h>
#include <HostKit/export.h>
#include <SingleInstanceController.h>

#include <QtCore/QMetaType>
#include <QtCore/QObject>
#include <QtCore/QStringList>

#include <memory>

/*! A host for applications that have none of their own, and what goes around the library. */
namespace HostKit {

class InstanceSessionPrivate;

/*!
    An application's part in running as a single instance, from its start to its end.

    \code
    QApplication application(launch.argc(), launch.argv()); // behind a HostKit::Launch
    HostKit::InstanceSession session;
    MainWindow window;
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived, &window,
                     &MainWindow::openFromOtherLaunch);
    return QApplication::exec();
    \endcode

    On top of the bare entry points it does what a host would otherwise have to do itself:
    - launches decide one after the other, so that two first launches do not both become master;
    - after a crash, a launch does not hand its arguments to a stranger who listens on the port that
      the crashed master recorded: a lock that the kernel frees tells whether a master lives;
    - a master that cannot be reached delays launches by two seconds. The first of them then takes
      its place;
    - no list is lost on the way to the application, neither before the application connects to the
      signal nor while it quits: what it has not received goes to the next process.

    Build it after the application object, with organisation and application name set. Use it in that
    object's thread alone. It may be a child of a window, or be deleted by a slot. All versions of the
    application that a user may run side by side must have a session: a session takes a master
    without one for crashed.

    A child process that is forked and runs no other program keeps the port and the locks as long as
    it lives. If the application crashes meanwhile, launches hand over to nobody. What QProcess
    starts keeps nothing.
*/
class HOSTKIT_EXPORT InstanceSession : public QObject {
    Q_OBJECT
    /*! What state() returns. */
    Q_PROPERTY(SingleInstanceState state READ state CONSTANT)

public:
    /*!
        Starts the session: becomes the master, if the Launch found none.

        Without a Launch it decides itself, as a Launch does: it hands over and raises the master's
        window, or becomes the master. It blocks as a Launch does then; otherwise for a millisecond.

        Without an application object, in another thread than that object's, or beside another
        session in this process, even of another copy of this library, it warns and does nothing,
        and its state is Failed.
    */
    explicit InstanceSession(QObject* parent = nullptr);

    /*! Ends the session as the end of the application does, if it has not ended yet. */
    ~InstanceSession() override;

    /*!
        Returns what this process is. It stays the same when the session ends.

        - Master: it receives what other launches hand over.
        - Secondary: without a Launch alone. A master has the arguments, or will have them: return
          from main().
        - Failed: it receives nothing; a warning said why. No master can be reached and none can
          start: the settings cannot be written, or the master lives in another network namespace.
          The application decides what to do: a window of its own is the usual choice.
        - Inactive: the user asked for a process that takes no part (OptionRole::NewInstance).
    */
    SingleInstanceState state() const;

    /*!
        Sets what the end of the session starts if lists are left: a program and its arguments, or
        nothing if \a command is empty. The program must build a session of the same application.

        At first it is the file that $APPIMAGE names, if there is one, or else
        QCoreApplication::applicationFilePath(), without arguments. Set it where the application is
        started by another command, such as an interpreter.
    */
    void setRestartCommand(const QStringList& command);

Q_SIGNALS:
    /*!
        Emitted in the application's thread for each launch that another process handed over, once
        for each, as a rule in the order of the launches. \a arguments are those of that launch
        without the program path.

        The event loop emits it, one launch an iteration, and never a loop that was told to quit.
        Launches wait until somebody is connected, and while the session's signals are blocked. What
        nobody has received when the application quits goes to another process, which is started
        for it. What a process has not received when it is killed is lost.

        The page \ref session (docs/session.md) says this in full.
    */
    void argumentsReceived(const QStringList& arguments);

    /*!
        The same as argumentsReceived(), with all that is known of the launch. If both signals are
        connected, each launch is received once by each.
    */
    void launchReceived(const HostKit::ReceivedLaunch& launch);

protected:
    /*! Makes the event loop deliver launches that came before. */
    void connectNotify(const QMetaMethod& signal) override;

private:
    friend class InstanceSessionPrivate;
    const std::unique_ptr<InstanceSessionPrivate> d;
};

} // namespace HostKit

Q_DECLARE_METATYPE(SingleInstanceState)
