#include <HostKit/QuitOnSignals.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

/* A signal handler may call only a few functions. So it writes to a pipe for the event loop. */

namespace HostKit {

namespace {

std::array<int, 2> ends = {-1, -1}; // of the pipe, which stays open until the process ends
pid_t process = 0; // that reads the pipe

void tell(int signal)
{
    if (::getpid() != process) { // a forked child ends as it would have without this handler
        ::raise(signal);
        return;
    }
    const int reason = errno;
    [[maybe_unused]] const auto written = ::write(ends[1], "", 1);
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
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
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
