/*
 * What crosses threads or processes, each beside floors measured in the same run. Ours and the
 * floors take turns, one at a time: send, wait until the list is in the inbox, go on.
 *
 * Prints one line a result: what, ours, floor, unit, by tabs; and "size" lines for the plot.
 */

#include "Foreground.h"
#include "MasterProbe.h"
#include "MessageFormat.h"
#include "MessageSender.h"
#include "Registry.h"
#include "SettingsSlot.h"
#include "SingleInstanceController.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QProcess>
#include <QtCore/QSemaphore>
#include <QtCore/QThread>
#include <QtNetwork/QNetworkProxy>
#include <QtNetwork/QTcpServer>
#include <QtNetwork/QTcpSocket>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace SingleInstance;

namespace {

using Action = std::function<void()>;

QSemaphore received; // released in the master's thread for each list

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + long(values.size() / 2), values.end());
    return values[values.size() / 2];
}

/* Runs the actions in turns; returns the median time of each in microseconds. */
std::vector<double> measure(int rounds, const std::vector<Action>& actions)
{
    std::vector<std::vector<double>> times(actions.size());
    if (qEnvironmentVariableIsSet("BENCH_PERCENT"))
        rounds = std::max(5, rounds * qEnvironmentVariableIntValue("BENCH_PERCENT") / 100);
    for (int round = -rounds / 10; round < rounds; ++round) { // the first warm up
        for (size_t i = 0; i < actions.size(); ++i) {
            QElapsedTimer timer;
            timer.start();
            actions[i]();
            if (round >= 0)
                times[i].push_back(double(timer.nsecsElapsed()) / 1000);
        }
    }
    std::vector<double> medians;
    for (const auto& each : times)
        medians.push_back(median(each));
    return medians;
}

void print(const char* what, double ours, double floor, const char* unit)
{
    std::printf("%s\t%.4g\t%.4g\t%s\n", what, ours, floor, unit);
    std::fflush(stdout);
}

/* As a session's, whose launches take a master without the lock for crashed. */
void becomeMaster()
{
    startSingleInstance();
    const QByteArray lock = qgetenv("XDG_CONFIG_HOME") + '/'
        + QCoreApplication::organizationName().toUtf8() + '/'
        + QCoreApplication::applicationName().toUtf8() + "/master.lock";
    ::flock(::open(lock.constData(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR), LOCK_SH);
    QObject::connect(findController(), &SingleInstanceController::messageReceived, [] {
        findController()->takeMessages();
        received.release();
    });
}

void sendByLibrary(const QByteArray& body)
{
    sendToMaster(body);
    received.acquire();
}

/* The same calls on the same kind of socket, and nothing else. */
void sendByQt(const QByteArray& body, quint16 port)
{
    QTcpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy);
    socket.connectToHost(QHostAddress(QHostAddress::LocalHostIPv6), port, QIODevice::WriteOnly);
    socket.waitForConnected(30000);
    socket.write(prefixed(body));
    socket.flush();
    socket.waitForBytesWritten(30000);
    socket.close();
    received.acquire();
}

void sendBySystem(const QByteArray& body, quint16 port)
{
    const QByteArray message = prefixed(body);
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(port);
    address.sin6_addr = in6addr_loopback;
    const int connection = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0
        || ::write(connection, message.constData(), size_t(message.size())) != message.size())
        qFatal("cannot reach the master by IPv6");
    ::close(connection);
    received.acquire();
}

QByteArray bodyOf(int size)
{
    return packArguments({QString((size - 8) / 2, QLatin1Char('x'))});
}

void measureHandOffs()
{
    const quint16 port = readMasterPort();
    const QByteArray file = packArguments({QStringLiteral("a.txt")});
    const QByteArray longest = bodyOf(65534);
    const auto small = measure(1000,
                               {[&] { sendByLibrary(file); }, [&] { sendByQt(file, port); },
                                [&] { sendBySystem(file, port); }});
    print("one hand-off of a.txt, beside QTcpSocket", small[0], small[1], "µs");
    print("one hand-off of a.txt, beside the system's calls", small[0], small[2], "µs");
    const auto large =
        measure(500, {[&] { sendByLibrary(longest); }, [&] { sendByQt(longest, port); }});
    print("one hand-off of 65,534 bytes", large[0], large[1], "µs");
    for (const int size : {18, 1024, 4096, 16384, 32768, 49152, 65534}) {
        const QByteArray body = bodyOf(size);
        const auto times =
            measure(200, {[&] { sendByLibrary(body); }, [&] { sendByQt(body, port); }});
        std::printf("size\t%d\t%.4g\t%.4g\n", size, times[0], times[1]);
    }
}

/* Starts a program; returns its process id and an end of a pipe from its output. */
pid_t start(const char* program, int& output)
{
    std::array<int, 2> channel = {};
    if (::pipe(channel.data()) != 0)
        qFatal("no pipe");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, channel[1], STDOUT_FILENO);
    ::posix_spawn_file_actions_addclose(&actions, channel[0]);
    pid_t child = 0;
    std::array<char*, 3> arguments = {const_cast<char*>(program), const_cast<char*>("a.txt"),
                                      nullptr};
    if (::posix_spawn(&child, program, &actions, nullptr, arguments.data(), environ) != 0)
        qFatal("cannot start %s", program);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(channel[1]);
    output = channel[0];
    return child;
}

/*
 * Returns how long it takes from the start of a program until it has happened, in milliseconds. The
 * end of the process is waited for and not measured.
 */
double startUntil(const char* program, const std::function<void(int)>& happened)
{
    QElapsedTimer timer;
    int output = 0;
    timer.start();
    const pid_t child = start(program, output);
    happened(output);
    const double time = double(timer.nsecsElapsed()) / 1e6;
    ::waitpid(child, nullptr, 0);
    ::close(output);
    return time;
}

void handedOver(int /*output*/)
{
    received.acquire();
}

void saysSo(int output)
{
    char byte = 0;
    if (::read(output, &byte, 1) != 1)
        qFatal("the program is silent");
}

struct Start {
    const char* program;
    void (*isDone)(int);
};

/* Starts the programs in turns; returns the median time of each in milliseconds. */
std::vector<double> measureStarts(int rounds, const std::vector<Start>& starts)
{
    if (qEnvironmentVariableIsSet("BENCH_PERCENT"))
        rounds = std::max(5, rounds * qEnvironmentVariableIntValue("BENCH_PERCENT") / 100);
    std::vector<std::vector<double>> times(starts.size());
    for (int round = 0; round < rounds; ++round) {
        for (size_t i = 0; i < starts.size(); ++i)
            times[i].push_back(startUntil(starts[i].program, starts[i].isDone));
    }
    std::vector<double> medians;
    for (const auto& each : times)
        medians.push_back(median(each));
    return medians;
}

void measureLaunches()
{
    const auto times = measureStarts(500,
                                     {{PROGRAMS "bench_launch", handedOver},
                                      {PROGRAMS "bench_floor", saysSo},
                                      {PROGRAMS "bench_floor_linked", saysSo}});
    print("a second launch, process start to list in the inbox", times[0], times[1], "ms");
    print("the same, beside a program that links the same", times[0], times[2], "ms");
    const quint16 port = readMasterPort();
    const auto asked = measure(500, {[port] { HostKit::isReachable(port); }});
    print("asking whether the master can be reached, in each launch", asked[0], 0, "µs");
}

/* With windows, on the display of the environment. */
void measureLaunchesOfApplications()
{
    QCoreApplication::setOrganizationName(QStringLiteral("SingleInstance"));
    QCoreApplication::setApplicationName(QStringLiteral("viewer"));
    const QByteArray home = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", home + "/first");
    const auto first = measureStarts(
        150,
        {{PROGRAMS "bench_application_launch", saysSo}, {PROGRAMS "bench_application", saysSo}});
    qputenv("XDG_CONFIG_HOME", home);
    becomeMaster();
    const auto second = measureStarts(200,
                                      {{VIEWER, handedOver},
                                       {PROGRAMS "bench_floor_widgets", saysSo},
                                       {PROGRAMS "bench_application", handedOver},
                                       {PROGRAMS "bench_application_parser", handedOver},
                                       {PROGRAMS "bench_application_launch", handedOver}});
    stopSingleInstance();
    print("a second launch of the viewer, process start to list in the inbox", second[0], second[1],
          "ms");
    print("the same, beside an application without HostKit::Launch", second[0], second[2], "ms");
    print("a second launch with a parser, beside one without", second[3], second[4], "ms");
    print("a first launch with its window, beside an application without HostKit::Launch", first[0],
          first[1], "ms");
}

/* On the display of the environment, with a window manager. */
void measureForeground(int windows)
{
    QProcess desktop;
    desktop.start(QStringLiteral(PROGRAMS "bench_windows"), {QString::number(windows)});
    const QString count = QStringLiteral("xprop -root _NET_CLIENT_LIST | grep -o 0x | wc -l");
    for (int i = 0; i < 200; ++i) {
        QProcess probe;
        probe.start(QStringLiteral("sh"), {QStringLiteral("-c"), count});
        probe.waitForFinished();
        if (probe.readAll().trimmed().toInt() == windows)
            break;
        QThread::msleep(50);
    }
    writeMasterPid(quint32(desktop.processId()));
    std::vector<double> times;
    for (int i = 0; i < 20; ++i) {
        QElapsedTimer timer;
        timer.start();
        bringMasterToForeground();
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    const QByteArray what = "the window to the front, among " + QByteArray::number(windows);
    print(what.constData(), median(times), 0, "ms");
    desktop.closeWriteChannel();
    desktop.waitForFinished();
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("bench"));
    if (argc > 1) {
        measureForeground(5);
        measureForeground(200);
        measureLaunchesOfApplications();
        return 0;
    }
    becomeMaster();
    measureHandOffs();
    measureLaunches();
    stopSingleInstance();
    return 0;
}
