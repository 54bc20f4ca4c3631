#include "FileArguments.h"
#include "ViewerWindow.h"

#include <SingleInstanceController.h>

#include <Core/ObjectsPool.h>
#include <HostKit/LaunchLock.h>
#include <HostKit/LogSink.h>
#include <Logger/Logger.h>

#include <QtWidgets/QApplication>

#include <cstdio>

using SingleInstance::SingleInstanceController;

namespace {

void setUpLog()
{
    bool isNumber = false;
    const int level = qEnvironmentVariableIntValue("SINGLEINSTANCE_LOG_LEVEL", &isNumber);
    const bool isLevel = isNumber && level >= 0 && level <= static_cast<int>(torvane::LogLevel::Off);
    torvane::SetLoggerLevel(isLevel ? static_cast<torvane::LogLevel>(level)
                                    : torvane::LogLevel::Warning);
    torvane::SetLoggerDelegate(torvane::WriteToStandardError);
    Logger::setQtDebugCatchingOn(true);
}

SingleInstanceState arbitrate()
{
    const HostKit::LaunchLock lock; // two first launches at once would both become master
    return startSingleInstance();
}

/* Opens what other launches hand over, now and from now on. */
void receiveInto(ViewerWindow& window)
{
    const QString name
        = QString::fromLatin1(SingleInstanceController::staticMetaObject.className());
    auto* const controller = qobject_cast<SingleInstanceController*>(
        Core::ObjectsPool::getInstance().find(name, false).second);
    if (!controller)
        return;
    const auto openAll = [&window, controller] {
        for (const QStringList& arguments : controller->takeMessages()) {
            window.present();
            window.open(arguments);
        }
    };
    QObject::connect(controller, &SingleInstanceController::messageReceived, &window, openAll);
    openAll(); // what came before the connection was made
}

} // namespace

int main(int argc, char* argv[])
{
    FileArguments arguments(argc, argv);
    QApplication application(arguments.count(), arguments.data());
    QCoreApplication::setOrganizationName(QStringLiteral("SingleInstance"));
    QCoreApplication::setApplicationName(QStringLiteral("viewer"));
    setUpLog();

    const SingleInstanceState state = arbitrate();
    if (state == SingleInstanceStateSecondary) {
        std::puts("viewer: handed over to the window that is open");
        return 0;
    }

    ViewerWindow window;
    window.setWindowTitle(QStringLiteral("Viewer"));
    window.show();
    if (state == SingleInstanceStateFailed)
        window.tell(QApplication::translate(
            "main", "This window stands alone: no running viewer could be reached, and files "
                    "opened later will not appear here."));
    receiveInto(window);
    window.open(QCoreApplication::arguments().mid(1));

    const int result = QApplication::exec();
    stopSingleInstance();
    return result;
}
