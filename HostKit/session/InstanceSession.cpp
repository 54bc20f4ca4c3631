#include "InstanceSessionPrivate.h"

#include "Arbitration.h"
#include "DesktopWindows.h"
#include "Directories.h"
#include "LaunchPrivate.h"
#include "LaunchSpool.h"
#include "MasterLock.h"
#include "Registry.h"
#include "SettingsSlot.h"
#include "SuccessorProcess.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QMetaMethod>
#include <QtCore/QScopeGuard>
#include <QtCore/QThread>

#include <cstdlib>
#include <utility>

#include <unistd.h>

namespace HostKit {

using namespace SingleInstance;

namespace {

/* A property of the application object: all copies of this library in a process share it. */
constexpr auto openProperty = "HostKit session is open";

/*
 * start() refuses arguments that take more than a message, although a master hands them to nobody.
 * So hide them, if there is a Launch, which can.
 */
SingleInstanceState startMaster()
{
    LaunchPrivate* const launch = LaunchPrivate::current;
    const int count = launch ? std::exchange(launch->line.count, 1) : 0;
    const auto restore = qScopeGuard([launch, count] {
        if (launch)
            launch->line.count = count;
    });
    return SingleInstanceController::start();
}

} // namespace

InstanceSessionPrivate* InstanceSessionPrivate::current = nullptr;

InstanceSessionPrivate::InstanceSessionPrivate(InstanceSession& owner)
    : restartCommand(QCoreApplication::instance() ? defaultRestartCommand() : QStringList())
    , idle([this] { deliver(); })
    , session(owner)
    , process(::getpid())
{
}

const char* InstanceSessionPrivate::obstacle() const
{
    const QCoreApplication* const application = QCoreApplication::instance();
    if (!application)
        return "there is no application object yet";
    if (session.thread() != application->thread())
        return "this is not the application's thread";
    return application->property(openProperty).toBool() ? "there is one already" : nullptr;
}

void InstanceSessionPrivate::open()
{
    if (const char* const reason = obstacle()) {
        qWarning("HostKit: cannot open a session, %s", reason);
        return;
    }
    LaunchPrivate* const launch = LaunchPrivate::current;
    if (launch && launch->isNewInstance) {
        state = SingleInstanceStateInactive;
        return;
    }
    setCurrent(this);
    if (launch && launch->decision)
        start(*std::exchange(launch->decision, std::nullopt));
    else
        decideAlone();
    QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, &session,
                     [this] {
                         if (wasConnected)
                             close();
                     });
    // exit() calls closeAtExit() before it destroys older static objects. This flush creates, in
    // both threads, those that closeAtExit() will use.
    if (port != 0)
        pending->flush(port);
    static const int registered = std::atexit(closeAtExit);
    Q_UNUSED(registered)
}

/* Without a Launch. */
void InstanceSessionPrivate::decideAlone()
{
    LaunchMessage message = thisLaunch();
    message.arguments = QCoreApplication::arguments().mid(1);
    Decision decision = decide(message);
    const bool isHandedOver = decision.outcome == Outcome::HandedOver;
    start(std::move(decision));
    if (isHandedOver)
        bringToFront(qgetenv("DESKTOP_STARTUP_ID"));
}

void InstanceSessionPrivate::setCurrent(InstanceSessionPrivate* session)
{
    current = session;
    if (QCoreApplication* const application = QCoreApplication::instance())
        application->setProperty(openProperty, session != nullptr);
}

/* Becomes master under the launch lock, if that was decided. */
void InstanceSessionPrivate::start(Decision decision)
{
    if (decision.outcome == Outcome::Failed)
        return;
    if (decision.outcome != Outcome::MasterToBe) {
        state = SingleInstanceStateSecondary;
        return;
    }
    state = startMaster();
    if (SingleInstanceController* const controller = findController()) {
        becomeMaster(*controller);
    } else if (state == SingleInstanceStateFailed) {
        qWarning("HostKit: this process cannot become master: it may not write the settings, or "
                 "finds no port");
    } else if (state == SingleInstanceStateSecondary) { // but start() had no arguments to hand over
        qWarning("HostKit: a process without a session became the master at this moment");
        state = SingleInstanceStateFailed;
    }
}

void InstanceSessionPrivate::becomeMaster(SingleInstanceController& controller)
{
    // The session ends the controller, after it has taken what arrived. If the application was not
    // ready for launches, that is later than aboutToQuit().
    QObject::disconnect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, &controller,
                        &QObject::deleteLater);
    warnIfWritableByOthers();
    masterLock = takeMasterLock();
    const QList<LaunchMessage> spooled = takeSpooled();
    tookSpooled = !spooled.isEmpty();
    pending = std::make_shared<PendingLaunches>(spooled);
    PendingLaunches::fillFrom(controller, pending, [this] { idle.request(); });
    if (readMasterPid() == GetCurrentProcessId()) // otherwise another process may be master by now
        port = readMasterPort();
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

} // namespace HostKit
