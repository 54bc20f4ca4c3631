#include "SingleInstanceController.h"

#include "DesktopWindows.h"
#include "Foreground.h"
#include "LogBridge.h"
#include "MessageFormat.h"
#include "MessageSender.h"
#include "Registry.h"
#include "ServerThread.h"
#include "SettingsSlot.h"

#include <QtCore/QCoreApplication>

#include <atomic>
#include <utility>

using SingleInstance::SingleInstanceController;

static_assert(sizeof(SingleInstanceState) == sizeof(int));

namespace SingleInstance {

using torvane::LogLevel;

namespace {

constexpr unsigned long quitTimeout = 10000; // ms

SingleInstanceState currentState; // written by start() and stop() alone

QStringList argumentsToHandOver()
{
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    return arguments.isEmpty() ? noArguments() : arguments;
}

void finishAsSecondary(const QStringList& arguments)
{
    logLine(LogLevel::Info, "command line arguments were transferred to the master: ",
            [&arguments] { return arguments.join(QLatin1Char(' ')); });
    bringMasterToForeground();
}

/* From here on, the registry knows the controller, and aboutToQuit() deletes it. */
void finishAsMaster(std::unique_ptr<SingleInstanceController> owner)
{
    SingleInstanceController* const controller = owner.release();
    QObject::connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, controller,
                     &QObject::deleteLater);
    registerController(*controller);
    logLine(LogLevel::Info, "started.");
}

} // namespace

/* The whole class is exported, but the compiler omits inline members that nothing here calls. */
QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED
namespace {
[[gnu::used]] constexpr decltype(&SingleInstanceController::tr) inlineMembers[] = {
    &SingleInstanceController::tr,
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
    &SingleInstanceController::trUtf8,
#endif
};
} // namespace
QT_WARNING_POP

SingleInstanceController::SingleInstanceController() = default;

SingleInstanceController::~SingleInstanceController()
{
    stopMaster();
}

SingleInstanceState SingleInstanceController::start()
{
    logLine(LogLevel::Info, "starting.");
    if (auto* const registered = findController()) {
        logLine(LogLevel::Warning, "other instance of the controller found while starting.");
        return currentState = registered->isMasterProcess() ? SingleInstanceStateMaster
                                                            : SingleInstanceStateFailed;
    }

    const QStringList arguments = argumentsToHandOver();
    const QByteArray message = packArguments(arguments);
    if (message.size() > maxBodySize) {
        logLine(LogLevel::Warning, "command line arguments sequence is too long (",
                static_cast<int>(message.size()), " bytes)!");
        return currentState = SingleInstanceStateFailed;
    }

    std::unique_ptr<SingleInstanceController> controller(new SingleInstanceController);
    const auto arbitrate = [&controller, &message] {
        if (controller->notifyMaster(message))
            return SingleInstanceStateSecondary;
        if (controller->startMaster())
            return SingleInstanceStateMaster;
        logLine(LogLevel::Debug,
                "cannot start master so try to send command line arguments again.");
        if (controller->notifyMaster(message))
            return SingleInstanceStateSecondary;
        logLine(LogLevel::Debug,
                "cannot send command line arguments so try to start master one more time.");
        if (controller->startMaster())
            return SingleInstanceStateMaster;
        logLine(LogLevel::Info, "cannot start master so give up.");
        return SingleInstanceStateFailed;
    };
    const SingleInstanceState state = arbitrate();
    if (state == SingleInstanceStateSecondary)
        finishAsSecondary(arguments);
    if (state == SingleInstanceStateMaster)
        finishAsMaster(std::move(controller));
    return currentState = state; // after that, a controller that does not serve is destroyed
}

SingleInstanceState SingleInstanceController::stop()
{
    logLine(LogLevel::Info, "stopping.");
    const std::unique_ptr<SingleInstanceController> controller(takeController());
    if (controller) {
        controller->stopMaster();
        logLine(LogLevel::Info, "stopped.");
    } else {
        logLine(LogLevel::Info, "no instance found, nothing to stop.");
    }
    return currentState = SingleInstanceStateInactive;
}

SingleInstanceState SingleInstanceController::getState()
{
    return currentState;
}

bool SingleInstanceController::isMasterProcess()
{
    return serverThread && serverThread->isRunning();
}

bool SingleInstanceController::startMaster()
{
    logLine(LogLevel::Info, "starting the master.");
    if (isMasterProcess()) {
        logLine(LogLevel::Info, "the master is already started.");
        return true;
    }

    std::atomic<bool> started = false; // the thread uses it only before it serves
    auto thread = makeServerThread(
        [&started](bool ok) { started = ok; },
        [this](const QStringList& arguments) {
            {
                const std::lock_guard<std::mutex> lock(messagesMutex);
                messages.append(arguments);
            }
            Q_EMIT messageReceived(); // without the lock: a slot may take the list right here
        });
    thread->start();
    // Not by a condition variable: a thread that the system cannot start never reports.
    while (thread->isRunning() && !started)
        QThread::yieldCurrentThread();
    if (!started) {
        logLine(LogLevel::Warning, "failed to start server.");
        return false;
    }
    serverThread = std::move(thread);
    writeMasterPid(GetCurrentProcessId());
    logLine(LogLevel::Info, "the master is started.");
    return true;
}

void SingleInstanceController::stopMaster()
{
    if (!serverThread)
        return;
    logLine(LogLevel::Info, "stopping the master.");
    if (serverThread->isRunning()) {
        serverThread->quit();
        if (!serverThread->wait(quitTimeout)) {
            logLine(LogLevel::Warning, "master thread closing too long so terminate it...");
            serverThread->terminate();
            serverThread->wait();
        }
    }
    serverThread.reset();
    logLine(LogLevel::Info, "the master is stopped.");
}

bool SingleInstanceController::notifyMaster(const QByteArray& message)
{
    return sendToMaster(message);
}

QList<QStringList> SingleInstanceController::peekMessages()
{
    const std::lock_guard<std::mutex> lock(messagesMutex);
    return messages;
}

QList<QStringList> SingleInstanceController::takeMessages()
{
    QList<QStringList> taken;
    const std::lock_guard<std::mutex> lock(messagesMutex);
    taken.swap(messages);
    return taken;
}

} // namespace SingleInstance

SingleInstanceState startSingleInstance()
{
    return SingleInstanceController::start();
}

SingleInstanceState stopSingleInstance()
{
    return SingleInstanceController::stop();
}

SingleInstanceState getSingleInstanceState()
{
    return SingleInstanceController::getState();
}

#include "moc_SingleInstanceController.cpp"
