#include "ViewerWindow.h"

#include <HostKit/InstanceSession.h>
#include <HostKit/Launch.h>
#include <HostKit/Log.h>
#include <HostKit/QuitOnSignals.h>

#include <QtCore/QCommandLineParser>
#include <QtCore/QDebug>
#include <QtWidgets/QApplication>

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

using HostKit::LogLevel;

namespace {

/* If they are closed, connections would get their numbers, and then the log. */
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

void addOptions(QCommandLineParser& parser)
{
    parser.setApplicationDescription(
        QCoreApplication::translate("main", "Shows text files, each in a tab of one window."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addOption({QStringLiteral("new-instance"),
                      QCoreApplication::translate(
                          "main", "Open a window of its own, apart from the one that is open.")});
    parser.addOption(
        {{QStringLiteral("w"), QStringLiteral("wait")},
         QCoreApplication::translate("main",
                                     "Wait until the tabs of the files are closed. Fail if a file "
                                     "cannot be shown.")});
    parser.addPositionalArgument(QStringLiteral("files"),
                                 QCoreApplication::translate("main", "Text files, or file URLs."),
                                 QStringLiteral("[files...]"));
}

QStringList filesIn(const QStringList& arguments)
{
    QCommandLineParser parser;
    addOptions(parser);
    // Not process(): it would end this program because of a mistake of another one.
    if (!parser.parse(QStringList(QString()) + arguments))
        qWarning().noquote() << parser.errorText();
    return parser.positionalArguments();
}

} // namespace

int main(int argc, char* argv[])
{
    openStandardFiles();
    setUpLog();
    QCoreApplication::setApplicationVersion(QStringLiteral(VIEWER_VERSION));
    QCommandLineParser parser;
    addOptions(parser);
    HostKit::Launch launch(argc, argv, QStringLiteral("SingleInstance"), QStringLiteral("viewer"),
                           parser,
                           {{QStringLiteral("new-instance"), HostKit::OptionRole::NewInstance},
                            {QStringLiteral("wait"), HostKit::OptionRole::Wait}});
    if (launch.isHandedOver() && !parser.isSet(QStringLiteral("wait")))
        std::puts("viewer: handed over to the window that is open");
    if (launch.isDone())
        return launch.exitCode();
    QApplication application(launch.argc(), launch.argv());
    HostKit::quitOnSignals();
    HostKit::InstanceSession session;

    ViewerWindow window;
    QObject::connect(&session, &HostKit::InstanceSession::launchReceived, &window,
                     [&window](const HostKit::ReceivedLaunch& received) {
                         window.openFromOtherLaunch(filesIn(received.arguments()), received);
                     });
    window.setWindowTitle(QStringLiteral("Viewer"));
    window.show();
    if (session.state() == SingleInstanceStateFailed)
        window.tell(QApplication::translate(
            "main",
            "This window stands alone: it could neither hand its files to a running viewer "
            "nor prepare for later ones, which will not appear here."));
    window.open(parser.positionalArguments());
    return QApplication::exec();
}
