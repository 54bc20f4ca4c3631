/*
 * One launch of an application without windows, for the tests that need real processes.
 *
 *   launcher session|bare [argument...]
 *
 * It answers in whole lines on standard output: "state N", then as the master "list A|B" for each
 * list that it receives. It obeys the lines on its standard input: "quit", "block N" (keeps the
 * main thread busy for N ms). It ends when the input ends, and after a minute at the latest.
 */

#include <Core/ObjectsPool.h>
#include <HostKit/InstanceSession.h>
#include <HostKit/LogSink.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>
#include <QtCore/QThread>

#include <cstdio>
#include <string>

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
}

void obey(const std::string& line)
{
    if (line.rfind("block ", 0) == 0) {
        say(QStringLiteral("blocking"));
        QThread::msleep(std::stoul(line.substr(6)));
    } else {
        isQuitting = true;
        QCoreApplication::quit();
    }
}

void obeyInput(QCoreApplication& application)
{
    auto* const input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, &application);
    QObject::connect(input, &QSocketNotifier::activated, input, [] {
        std::string line;
        char c = 0;
        while (::read(STDIN_FILENO, &c, 1) == 1 && c != '\n')
            line += c;
        obey(line);
    });
}

int runSession()
{
    HostKit::InstanceSession session;
    say(QStringLiteral("state %1").arg(session.state()));
    if (session.state() != SingleInstanceStateMaster)
        return session.state();
    QObject::connect(&session, &HostKit::InstanceSession::argumentsReceived, qApp, [](auto& list) {
        show(list);
        if (isQuitting)
            QCoreApplication::quit(); // has no window to stay open for
    });
    return session.run(&QCoreApplication::exec);
}

int runBare()
{
    const SingleInstanceState state = startSingleInstance();
    say(QStringLiteral("state %1").arg(state));
    if (state != SingleInstanceStateMaster)
        return state;
    auto* const controller = static_cast<SingleInstanceController*>(
        Core::ObjectsPool::getInstance()
            .find(QStringLiteral("SingleInstance::SingleInstanceController"), false)
            .first);
    const auto showAll = [controller] {
        for (const QStringList& arguments : controller->takeMessages())
            show(arguments);
    };
    QObject::connect(controller, &SingleInstanceController::messageReceived, qApp, showAll);
    showAll();
    const int result = QCoreApplication::exec();
    stopSingleInstance();
    return result;
}

} // namespace

int main(int argc, char* argv[])
{
    ::alarm(60);
    QCoreApplication application(argc, argv);
    obeyInput(application);
    torvane::SetLoggerDelegate(torvane::WriteToStandardError);
    const bool isBare = argc > 1 && qstrcmp(argv[1], "bare") == 0;
    return isBare ? runBare() : runSession();
}
