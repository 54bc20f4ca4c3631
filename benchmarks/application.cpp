/*
 * An application with a window. A second launch hands over and ends. A first launch shows its
 * window, writes a byte, and ends. With LAUNCH it has a HostKit::Launch, with PARSER also a parser.
 */

#include <HostKit/InstanceSession.h>
#include <HostKit/Launch.h>

#include <QtCore/QCommandLineParser>
#include <QtWidgets/QApplication>
#include <QtWidgets/QMainWindow>

#include <unistd.h>

int main(int argc, char* argv[])
{
    const QString organisation = QStringLiteral("SingleInstance");
    const QString name = QStringLiteral("viewer");
#ifdef LAUNCH
#ifdef PARSER
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument(QStringLiteral("files"), QString());
    HostKit::Launch launch(argc, argv, organisation, name, parser);
#else
    HostKit::Launch launch(argc, argv, organisation, name);
#endif
    if (launch.isDone())
        return launch.exitCode();
    const QApplication application(launch.argc(), launch.argv());
#else
    const QApplication application(argc, argv);
    QCoreApplication::setOrganizationName(organisation);
    QCoreApplication::setApplicationName(name);
#endif
    const HostKit::InstanceSession session;
    if (session.state() == SingleInstanceStateSecondary)
        return 0;
    QMainWindow window;
    window.show();
    QCoreApplication::processEvents();
    return ::write(STDOUT_FILENO, "x", 1) == 1 ? 0 : 1;
}
