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

/*! libSingleInstance with all that it needs: settings, registry, log, locks between processes. */
namespace HostKit {

class InstanceSessionPrivate;

/*!
    Makes an application a single instance from its start to its end.

    \code
    QApplication application(launch.argc(), launch.argv()); // after a HostKit::Launch
    HostKit::InstanceSession session;
    MainWindow window;
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived, &window,
                     &MainWindow::openFromOtherLaunch);
    return QApplication::exec();
    \endcode

    To startSingleInstance() and stopSingleInstance() it adds what an application would otherwise
    have to do itself:
    - Launches decide one after another. Two first launches cannot both become master.
    - A lock that the kernel releases tells whether a master lives. After a crash, launches do not
      hand their arguments to another process that listens on the recorded port.
    - Launches usually wait no longer than two seconds for a master that cannot be reached. The
      first of them takes its place. Launch says how long it waits at worst.
    - No launch is lost before the application connects to the signal, or while it quits. What it
      has not received goes to the next process.

    Build the session after the application object, with organisation and application name set. Use
    it only in that object's thread. It may be a child of a window, and a slot may delete it. With a
    session, do not call startSingleInstance() or stopSingleInstance(), and do not take messages
    from the controller. All versions of an application that may run side by side must have a
    session. If a master has none, sessions treat it as crashed.

    A forked child that does not call exec() keeps the port, the locks, and the connections to
    launches that wait for an answer, as long as it lives. If the application crashes meanwhile,
    launches hand over to nobody. Processes that QProcess starts keep nothing.
*/
class HOSTKIT_EXPORT InstanceSession : public QObject {
    Q_OBJECT
    /*! What state() returns. */
    Q_PROPERTY(SingleInstanceState state READ state CONSTANT)

public:
    /*!
        Starts the session. If the Launch found no master that can be reached, this process becomes
        the master. That usually takes a millisecond. If the master lives in another network
        namespace, the state is Failed.

        Without a Launch, the session decides by itself, and blocks as a Launch does: it hands over
        and raises the master's window, or becomes the master.

        The state is Failed, with a warning, if there is no application object, if this is not its
        thread, or if this process has a session already, even one of another copy of this library.
    */
    explicit InstanceSession(QObject* parent = nullptr);

    /*!
        Ends the session, if it has not ended with the application. Usually blocks for milliseconds;
        \ref session says how long at worst.
    */
    ~InstanceSession() override;

    /*!
        Returns what this process is. It stays the same when the session ends.

        - Master: it receives what other launches hand over.
        - Secondary: a master has the arguments, or will get them; or this process was started for
          launches that were left, and has nothing to do. Return from main(). With a Launch this
          happens only if main() ignores Launch::isDone().
        - Failed: it receives nothing. A warning said why: for example, the settings cannot be
          written, or the master lives in another network namespace. The application decides what to
          do. Usually it opens a window of its own.
        - Inactive: the user asked for a process that takes no part (OptionRole::NewInstance).
    */
    SingleInstanceState state() const;

    /*!
        Sets the program that the session starts at its end if launches are left: the program and
        its arguments. An empty \a command forbids it. The program must build a session of the same
        application.

        By default it is the file that $APPIMAGE names, if there is one, or else
        QCoreApplication::applicationFilePath(), without arguments. Set it if another command starts
        the application, such as an interpreter.
    */
    void setRestartCommand(const QStringList& command);

Q_SIGNALS:
    /*!
        Emitted once for each launch that another process handed over, usually in the order of the
        launches. \a arguments are those of that launch, without the program path. Options are among
        them: parse them as main() does.

        The event loop of the application's thread emits it, for one launch per iteration, and not
        after it was told to quit, as far as it can know. Launches wait while nobody is connected,
        and while the session's signals are blocked. What nobody has received when the application
        quits goes to another process, which the session starts. What a process has not received
        when it is killed is lost.

        \ref session describes this in full (docs/session.md).
    */
    void argumentsReceived(const QStringList& arguments);

    /*!
        The same with everything that is known about the launch. If both signals are connected, each
        is emitted once per launch, this one first.
    */
    void launchReceived(const HostKit::ReceivedLaunch& launch);

protected:
    /*! Delivers launches that wait for a connection. */
    void connectNotify(const QMetaMethod& signal) override;

private:
    friend class InstanceSessionPrivate;
    const std::unique_ptr<InstanceSessionPrivate> d;
};

} // namespace HostKit

Q_DECLARE_METATYPE(SingleInstanceState)
