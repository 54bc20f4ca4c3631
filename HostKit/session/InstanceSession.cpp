#include <HostKit/InstanceSession.h>

#include <HostKit/LaunchLock.h>

#include "Activation.h"
#include "ApplicationFolder.h"
#include "DesktopWindows.h"
#include "Election.h"
#include "HandOver.h"
#include "Inbox.h"
#include "LaunchPrivate.h"
#include "Parts.h"
#include "QuietTurn.h"
#include "Registry.h"
#include "SettingsSlot.h"
#include "StartupNotification.h"
#include "Successor.h"
#include "WaitingLists.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QMetaMethod>
#include <QtCore/QThread>

#include <atomic>
#include <chrono>
#include <cstdlib>

#include <unistd.h>

/*
 * Two locks, both in the application's folder, both freed by the kernel with their holder.
 *
 * launch.lock is held while anything is decided: by a launch from before it looks for a master
 * until it has handed over or become one, and by the master that ends until it has given the port
 * back and left its lists to the next. So nobody hands over to a master that is about to go.
 *
 * master.lock tells whether a master lives (Election.h).
 *
 * A list goes from the library's inbox to ours in the master's own thread, from there to the
 * application in a turn of its event loop, or else, at the end, into the file for the next process.
 */

namespace HostKit {

using namespace SingleInstance;

namespace {

constexpr int patience = 10000; // ms, with launches before this one

/* Hands \a lists over to another master. Returns those that it did not take. */
QList<QStringList> passOn(const QList<QStringList>& lists, quint16 port)
{
    return lists.mid(handOverAll(lists, port, std::chrono::seconds(1)));
}

} // namespace

class InstanceSessionPrivate {
public:
    explicit InstanceSessionPrivate(InstanceSession& owner);
    void open();
    void close();
    void receive();

    SingleInstanceState state = SingleInstanceStateFailed;
    QStringList restartCommand;
    QuietTurn turn;
    std::atomic<bool> wasConnected = false; // somebody, to argumentsReceived()

private:
    const char* obstacle() const;
    void decide();
    bool servesLists() const;
    void becomeMaster(SingleInstanceController& controller, bool isAlone);
    bool leaveLists();
    void startAnother() const;
    static void closeAtExit();

    static InstanceSessionPrivate* current; // the one that is open

    InstanceSession& session;
    const pid_t process = ::getpid(); // a forked child has a copy of all this
    const QString waitingLists;
    FileLock masterLock; // held for as long as this process is the master
    std::shared_ptr<Inbox> inbox; // a master's
    quint16 port = 0; // on which this process is the master, as far as it is known
    ReceivedActivation activation;
    bool hasLeftLists = false; // by a process before
    bool hasReceived = false;
};

InstanceSessionPrivate* InstanceSessionPrivate::current = nullptr;

InstanceSessionPrivate::InstanceSessionPrivate(InstanceSession& owner)
    : turn([this] { receive(); })
    , session(owner)
    , waitingLists(applicationFolder() + QLatin1String("/waiting.lists"))
{
}

const char* InstanceSessionPrivate::obstacle() const
{
    const QCoreApplication* const application = QCoreApplication::instance();
    if (!application)
        return "there is no application object yet";
    if (session.thread() != application->thread())
        return "this is not the application's thread";
    return current ? "there is one already" : nullptr;
}

void InstanceSessionPrivate::open()
{
    if (const char* const reason = obstacle()) {
        qWarning("HostKit: cannot open a session, %s", reason);
        return;
    }
    current = this;
    decide();
    QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, &session,
                     [this] {
                         if (wasConnected)
                             close();
                     });
    // exit() runs this before it destroys what is static and was built before. So do once what it
    // will do: here and in the master's thread that builds what it needs.
    if (port != 0)
        inbox->flush(port);
    static const int registered = std::atexit(closeAtExit);
    Q_UNUSED(registered)
}

void InstanceSessionPrivate::decide()
{
    LaunchPrivate* const launch = LaunchPrivate::current;
    const LaunchLock launchLock(launch && launch->hasWaitedInVain ? 0 : patience);
    const bool isForLists = isSuccessor();
    forgetSuccessor();
    if (isForLists && launchLock.isTaken() && !servesLists()) {
        state = SingleInstanceStateSecondary;
        return;
    }
    leaveActivationToken(launch ? launch->activationToken : ownActivationToken());
    if (clearUnreachableMaster(launchLock.isTaken()))
        state = startInParts(launch ? &launch->line : nullptr);
    if (SingleInstanceController* const controller = findController())
        becomeMaster(*controller, launchLock.isTaken());
    else if (launch && state == SingleInstanceStateSecondary)
        endStartup(launch->startupId);
}

/* Whether a process that was started for lists is to receive them: if another is master by now,
 * they go there. */
bool InstanceSessionPrivate::servesLists() const
{
    if (!hasWaitingLists(waitingLists))
        return false;
    const quint16 other = answeringMaster();
    if (other == 0)
        return true;
    const QList<QStringList> left = passOn(takeWaitingLists(waitingLists), other);
    if (!left.isEmpty() && addWaitingLists(waitingLists, left))
        qWarning("HostKit: lists of arguments wait in %s for the next master: that on port %d "
                 "takes no more",
                 qPrintable(waitingLists), other);
    return false;
}

void InstanceSessionPrivate::becomeMaster(SingleInstanceController& controller, bool isAlone)
{
    // The session ends it, later if need be, and not before it has what arrived.
    QObject::disconnect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, &controller,
                        &QObject::deleteLater);
    warnOfOtherWriters();
    restartCommand = QStringList(QCoreApplication::applicationFilePath());
    masterLock = takeMasterLock();
    const QList<QStringList> left = takeWaitingLists(waitingLists);
    hasLeftLists = !left.isEmpty();
    inbox = std::make_shared<Inbox>(left);
    Inbox::fillFrom(controller, inbox, [this] { turn.request(); });
    if (isAlone || readMasterPid() == GetCurrentProcessId())
        port = readMasterPort();
    activation.noteWhatIsThere(); // a launch that hands over to us comes after this one
}

/* One list a turn: the slot may quit, or run a loop of its own, which goes on with the next. */
void InstanceSessionPrivate::receive()
{
    static const auto signal = QMetaMethod::fromSignal(&InstanceSession::argumentsReceived);
    if (!inbox || inbox->isEmpty() || !session.isSignalConnected(signal)
        || session.signalsBlocked())
        return;
    hasReceived = true;
    const QStringList list = inbox->takeFirst();
    if (!inbox->isEmpty())
        turn.request();
    activation.takeOver();
    emit session.argumentsReceived(list); // which may delete the session
}

void InstanceSessionPrivate::close()
{
    if (current != this || ::getpid() != process)
        return;
    current = nullptr;
    if (inbox && leaveLists())
        startAnother();
}

/* Gives the port back, and returns whether lists wait for another process. */
bool InstanceSessionPrivate::leaveLists()
{
    const LaunchLock launchLock;
    if (findController() && (port == 0 || !inbox->flush(port)))
        qWarning("HostKit: what was handed over last may be lost, the master cannot be reached");
    stopSingleInstance();
    masterLock = FileLock();
    QList<QStringList> left = inbox->takeAll();
    const quint16 other = !left.isEmpty() && launchLock.isTaken() ? answeringMaster() : 0;
    if (other != 0) // that of the master that took our place when we could not be reached
        left = passOn(left, other);
    return !left.isEmpty() && addWaitingLists(waitingLists, left);
}

void InstanceSessionPrivate::startAnother() const
{
    const char* reason = nullptr;
    if (hasLeftLists && !hasReceived)
        reason = "has received none itself"; // or processes would start each other for ever
    else if (restartCommand.isEmpty())
        reason = "is not to start another";
    else if (isLastSuccessor())
        reason = "was started for others that came while one was quitting, one after the other";
    else if (!startSuccessor(restartCommand))
        reason = "cannot start another";
    if (reason)
        qWarning("HostKit: lists of arguments wait in %s for the next launch: this process %s",
                 qPrintable(waitingLists), reason);
}

void InstanceSessionPrivate::closeAtExit()
{
    if (current && current->session.thread() == QThread::currentThread())
        current->close();
}

InstanceSession::InstanceSession(QObject* parent)
    : QObject(parent)
    , d(std::make_unique<InstanceSessionPrivate>(*this))
{
    d->open();
}

InstanceSession::~InstanceSession()
{
    d->close();
}

SingleInstanceState InstanceSession::state() const
{
    return d->state;
}

void InstanceSession::setRestartCommand(const QStringList& command)
{
    d->restartCommand = command;
}

void InstanceSession::connectNotify(const QMetaMethod& signal)
{
    if (signal != QMetaMethod::fromSignal(&InstanceSession::argumentsReceived))
        return;
    d->wasConnected = true;
    d->turn.request();
}

} // namespace HostKit
