#include "ViewerWindow.h"

#include <HostKit/InstanceSession.h>
#include <HostKit/Launch.h>
#include <HostKit/Log.h>

#include <QtWidgets/QApplication>

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

using HostKit::LogLevel;

namespace {

/* Or the first connections that are opened would be taken for them, and get the log. */
void openStandardFiles()
{
    int file = ::open("/dev/null", O_RDWR);
    while (file >= 0 && file <= STDERR_FILENO)
        file = ::dup(file);
    ::close(file);
}

void setUpLog()
{
    bool isNumber = false;
    const int level = qEnvironmentVariableIntValue("SINGLEINSTANCE_LOG_LEVEL", &isNumber);
    const bool isLevel = isNumber && level >= 0 && level <= static_cast<int>(LogLevel::Off);
    HostKit::setLogLevel(isLevel ? static_cast<LogLevel>(level) : LogLevel::Warning);
    HostKit::setLogSink(HostKit::writeToStandardError);
    HostKit::catchQtMessages(true);
}

int sayHandedOver()
{
    std::puts("viewer: handed over to the window that is open");
    return 0;
}

} // namespace

int main(int argc, char* argv[])
{
    openStandardFiles();
    setUpLog();
    HostKit::Launch launch(argc, argv, QStringLiteral("SingleInstance"), QStringLiteral("viewer"));
    if (launch.isHandedOver())
        return sayHandedOver();
    QApplication application(launch.argc(), launch.argv());
    HostKit::InstanceSession session;
    if (session.state() == SingleInstanceStateSecondary)
        return sayHandedOver();

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
    return QApplication::exec();
}
