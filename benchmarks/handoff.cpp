/*
 * Measures hand-offs and launches, and floors to compare them with. They take turns, one at a time:
 * send, wait until the list is in the inbox, continue.
 *
 * Prints one line for each result, separated by tabs: what, ours, floor, unit. Prints "size" lines
 * for the plot.
 */

#include "Directories.h"
#include "MessageFormat.h"
#include "MessageSender.h"
#include "Registry.h"
#include "SettingsSlot.h"
#include "SingleInstanceController.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QSemaphore>
#include <QtNetwork/QNetworkProxy>
#include <QtNetwork/QTcpSocket>

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace SingleInstance;

namespace {

/* Does something once; returns how long it took, in microseconds. */
using Action = std::function<double()>;

QSemaphore received; // released in the master's thread for each list

double timeOf(const std::function<void()>& work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1000;
}

/* Runs the actions in turns; returns the median time of each. */
std::vector<double> measure(int rounds, const std::vector<Action>& actions)
{
    std::vector<std::vector<double>> times(actions.size());
    if (qEnvironmentVariableIsSet("BENCH_PERCENT"))
        rounds = std::max(5, rounds * qEnvironmentVariableIntValue("BENCH_PERCENT") / 100);
    for (int round = -rounds / 10; round < rounds; ++round) { // the first warm up
        for (size_t i = 0; i < actions.size(); ++i) {
            const double time = actions[i]();
            if (round >= 0)
                times[i].push_back(time);
        }
    }
    std::vector<double> medians;
    for (auto& each : times) {
        const auto middle = each.begin() + long(each.size() / 2);
        std::nth_element(each.begin(), middle, each.end());
        medians.push_back(*middle);
    }
    return medians;
}

void print(const char* what, double ours, double floor, const char* unit)
{
    std::printf("%s\t%.4g\t%.4g\t%s\n", what, ours, floor, unit);
    std::fflush(stdout);
}

/* With the lock of a session: launches consider a master without it crashed. */
void becomeMaster(const char* organisation, const char* application)
{
    QCoreApplication::setOrganizationName(QString::fromLatin1(organisation));
    QCoreApplication::setApplicationName(QString::fromLatin1(application));
    startSingleInstance();
    const QByteArray lock =
        QFile::encodeName(HostKit::configDirectory() + QLatin1String("/master.lock"));
    ::flock(::open(lock.constData(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR), LOCK_SH);
    QObject::connect(findController(), &SingleInstanceController::messageReceived, [] {
        findController()->takeMessages();
        received.release();
    });
}

Action byLibrary(const QByteArray& body)
{
    return [body] {
        return timeOf([&body] {
            sendToMaster(body);
            received.acquire();
        });
    };
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

Action byQt(const QByteArray& body)
{
    return [body, port = readMasterPort()] { return timeOf([&] { sendByQt(body, port); }); };
}

QByteArray bodyOf(int size)
{
    return packArguments({QString((size - 8) / 2, QLatin1Char('x'))});
}

void measureHandOffs()
{
    const QByteArray file = packArguments({QStringLiteral("a.txt")});
    const auto small = measure(1000, {byLibrary(file), byQt(file)});
    print("one hand-off of a.txt, beside QTcpSocket", small[0], small[1], "µs");
    for (const int size : {18, 1024, 4096, 16384, 32768, 49152, 65534}) {
        const QByteArray body = bodyOf(size);
        const auto times = measure(300, {byLibrary(body), byQt(body)});
        std::printf("size\t%d\t%.4g\t%.4g\n", size, times[0], times[1]);
        if (size == 65534)
            print("one hand-off of 65,534 bytes", times[0], times[1], "µs");
    }
}

/* Starts a program. Returns its process id, and in \a output an end of a pipe from its output. */
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

/*
 * Starts a program and waits until it has \a happened. Then waits for the end of the process,
 * without measuring it.
 */
Action startOf(const char* program, void (*happened)(int))
{
    return [program, happened] {
        int output = 0;
        pid_t child = 0;
        const double time = timeOf([&] {
            child = start(program, output);
            happened(output);
        });
        ::waitpid(child, nullptr, 0);
        ::close(output);
        return time / 1000; // ms
    };
}

void measureLaunches()
{
    const auto times = measure(500,
                               {startOf(PROGRAMS "bench_launch", handedOver),
                                startOf(PROGRAMS "bench_floor", saysSo),
                                startOf(PROGRAMS "bench_floor_linked", saysSo)});
    print("a second launch, process start to list in the inbox", times[0], times[1], "ms");
    print("the same, beside a program that links the same", times[0], times[2], "ms");
}

/* With windows, on the display of the environment. */
void measureLaunchesOfApplications()
{
    const QByteArray home = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", home + "/first");
    const auto first = measure(80,
                               {startOf(PROGRAMS "bench_application_launch", saysSo),
                                startOf(PROGRAMS "bench_application", saysSo)});
    qputenv("XDG_CONFIG_HOME", home);
    becomeMaster("SingleInstance", "viewer");
    const auto second =
        measure(150,
                {startOf(VIEWER, handedOver), startOf(PROGRAMS "bench_floor_widgets", saysSo),
                 startOf(PROGRAMS "bench_application", handedOver),
                 startOf(PROGRAMS "bench_application_parser", handedOver),
                 startOf(PROGRAMS "bench_application_launch", handedOver)});
    stopSingleInstance();
    print("a second launch of the viewer, process start to list in the inbox", second[0], second[1],
          "ms");
    print("the same, beside an application without HostKit::Launch", second[0], second[2], "ms");
    print("a second launch with a parser, beside one without", second[3], second[4], "ms");
    print("a first launch with its window, beside an application without HostKit::Launch", first[0],
          first[1], "ms");
}

} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc > 1) {
        measureLaunchesOfApplications();
        return 0;
    }
    becomeMaster("", "bench");
    measureHandOffs();
    measureLaunches();
    stopSingleInstance();
    return 0;
}
