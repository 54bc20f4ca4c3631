/*
 * One launch of an application without windows, for the tests that need real processes.
 *
 *   launcher session|bare [argument...]
 *
 * It answers in whole lines on standard output: "state N", then as the master "list A|B" for each
 * list that it receives. It obeys the lines on its standard input: "quit", which it answers by
 * "quitting"; "save", which is "quit" with "saving" and three seconds of work at the end; "block",
 * which it answers by "blocking" and ten seconds of a busy main thread. It ends when the input
 * ends, and after a minute at the latest.
 */

#include <Core/ObjectsPool.h>
#include <HostKit/InstanceSession.h>
#include <HostKit/LogSink.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>
#include <QtCore/QThread>

#include <cstdio>

#include <unistd.h>

using SingleInstance::SingleInstanceController;

namespace {

bool isQuitting = false;

void say(const QString& line)
{
    std::puts(line.toUtf8().constData());
    std::fflush(stdout);
}

void show(const QStringList& arguments)
{
    say(QStringLiteral("list ") + arguments.mid(1).join(QLatin1Char('|'))); // without the mode
    if (isQuitting)
        QCoreApplication::quit(); // has no window to stay open for
}

void save()
{
    say(QStringLiteral("saving"));
    QThread::sleep(3);
}

void obey()
{
    QByteArray line(16, '\0');
    if (::read(STDIN_FILENO, line.data(), 15) > 0 && line.startsWith("block")) {
        say(QStringLiteral("blocking"));
        QThread::sleep(10);
        return;
    }
    if (line.startsWith("save"))
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, save);
    say(QStringLiteral("quitting"));
    isQuitting = true;
    QCoreApplication::quit();
}

int runSession()
{
    HostKit::InstanceSession session;
    say(QStringLiteral("state %1").arg(session.state()));
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived, show);
    return session.state() == SingleInstanceStateMaster ? session.run(&QCoreApplication::exec) : 0;
}

int runBare()
{
    say(QStringLiteral("state %1").arg(startSingleInstance()));
    const auto entry = Core::ObjectsPool::getInstance().find(
        QStringLiteral("SingleInstance::SingleInstanceController"), false);
    if (auto* const controller = qobject_cast<SingleInstanceController*>(entry.second)) {
        const auto showAll = [controller] {
            for (const QStringList& arguments : controller->takeMessages())
                show(arguments);
        };
        QObject::connect(controller, &SingleInstanceController::messageReceived, qApp, showAll);
        showAll();
        QCoreApplication::exec();
    }
    return stopSingleInstance();
}

} // namespace

int main(int argc, char* argv[])
{
    ::alarm(60);
    QCoreApplication application(argc, argv);
    const QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&input, &QSocketNotifier::activated, obey);
    torvane::SetLoggerDelegate(torvane::WriteToStandardError);
    const bool isBare = argc > 1 && qstrcmp(argv[1], "bare") == 0;
    return isBare ? runBare() : runSession();
}
