#include "FileArguments.h"
#include "StartupNotification.h"
#include "ViewerWindow.h"

#include <HostKit/InstanceSession.h>
#include <HostKit/LogSink.h>
#include <Logger/Logger.h>

#include <QtWidgets/QApplication>

#include <cstdio>

namespace {

void setUpLog()
{
    bool isNumber = false;
    const int level = qEnvironmentVariableIntValue("SINGLEINSTANCE_LOG_LEVEL", &isNumber);
    const bool isLevel =
        isNumber && level >= 0 && level <= static_cast<int>(torvane::LogLevel::Off);
    torvane::SetLoggerLevel(isLevel ? static_cast<torvane::LogLevel>(level)
                                    : torvane::LogLevel::Warning);
    torvane::SetLoggerDelegate(torvane::WriteToStandardError);
    Logger::setQtDebugCatchingOn(true);
}

} // namespace

int main(int argc, char* argv[])
{
    FileArguments arguments(argc, argv);
    const QByteArray launcherWaitsFor = startupId();
    QApplication application(arguments.count(), arguments.data());
    QCoreApplication::setOrganizationName(QStringLiteral("SingleInstance"));
    QCoreApplication::setApplicationName(QStringLiteral("viewer"));
    setUpLog();

    HostKit::InstanceSession session;
    if (session.state() == SingleInstanceStateSecondary) {
        endStartup(launcherWaitsFor);
        std::puts("viewer: handed over to the window that is open");
        return 0;
    }

    ViewerWindow window;
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived, &window,
                     &ViewerWindow::openFromOtherLaunch);
    window.setWindowTitle(QStringLiteral("Viewer"));
    window.show();
    if (session.state() == SingleInstanceStateFailed)
        window.tell(QApplication::translate(
            "main",
            "This window stands alone: it could neither hand its files to a running viewer "
            "nor prepare for later ones, which will not appear here."));
    window.open(QCoreApplication::arguments().mid(1));
    return session.run(&QApplication::exec);
}
