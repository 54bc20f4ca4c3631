#include <HostKit/QuitOnSignals.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>

#include <fcntl.h>
#include <unistd.h>

/*
 * A signal handler may call only a few functions. So it writes to a pipe for the event loop.
 *
 * One request to end often comes as two signals. When a terminal closes, the kernel sends SIGHUP,
 * and so does the shell. timeout(1) signals its child, and then the child's process group. So a
 * signal that soon follows another of its kind does not end the process.
 */

namespace HostKit {

namespace {

std::array<int, 2> ends = {-1, -1}; // of the pipe, which stays open until the process ends
pid_t process = 0; // that reads the pipe
std::array<std::atomic<time_t>, NSIG> firstTimes = {}; // in seconds; 0 if none came

constexpr time_t shortTime = 2; // in full seconds of the clock: one to two seconds

/* Returns how many seconds ago the first signal of this kind came, or -1 if this is the first. */
time_t secondsSinceFirst(int signal)
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    time_t first = 0;
    const bool isFirst =
        firstTimes[static_cast<size_t>(signal)].compare_exchange_strong(first, now.tv_sec);
    return isFirst ? -1 : now.tv_sec - first;
}

void tell(int signal)
{
    const int reason = errno;
    // A forked child ends as it would have without this handler.
    const time_t seconds = ::getpid() == process ? secondsSinceFirst(signal) : shortTime;
    if (seconds >= shortTime) {
        std::signal(signal, SIG_DFL);
        ::raise(signal);
    } else if (seconds < 0) {
        [[maybe_unused]] const auto written = ::write(ends[1], "", 1);
    }
    errno = reason;
}

void quitOn(int signal)
{
    struct sigaction usual = {};
    ::sigaction(signal, nullptr, &usual);
    if (usual.sa_handler == SIG_IGN)
        return;
    struct sigaction action = {};
    action.sa_handler = tell;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, &action, nullptr);
}

} // namespace

bool quitOnSignals()
{
    if (ends[0] >= 0 || !QCoreApplication::instance()
        || ::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        return false;
    process = ::getpid();
    auto* const notifier =
        new QSocketNotifier(ends[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [] {
        std::array<char, 8> bytes = {};
        while (::read(ends[0], bytes.data(), bytes.size()) > 0) { }
        QCoreApplication::quit();
    });
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        quitOn(signal);
    return true;
}

} // namespace HostKit
