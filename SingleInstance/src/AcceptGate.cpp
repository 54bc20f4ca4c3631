#include "AcceptGate.h"

#include <QtNetwork/QTcpServer>

#ifdef Q_OS_UNIX

#include <QtCore/QEvent>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <algorithm>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace SingleInstance {

namespace {

constexpr rlim_t descriptorsForHost = 32;
constexpr int retryInterval = 100; // ms; no kernel tells when a descriptor becomes free

/*
 * The number that a new descriptor would get tells how near the limit is, which the host may move
 * at any time.
 */
bool descriptorsRunLow(int anyOpen)
{
    const int next = ::fcntl(anyOpen, F_DUPFD_CLOEXEC, 0);
    if (next < 0)
        return true;
    ::close(next);
    rlimit limit = {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return false;
    const rlim_t reserve = std::min(descriptorsForHost, limit.rlim_cur / 4);
    return static_cast<rlim_t>(next) >= limit.rlim_cur - reserve;
}

class AcceptGate : public QObject {
public:
    explicit AcceptGate(QTcpServer& guarded);
    bool eventFilter(QObject* notifier, QEvent* event) override;

private:
    bool closeIfLow();
    void close();
    void open();

    QTcpServer& server;
    const int usualPending;
    QTimer retry;
};

AcceptGate::AcceptGate(QTcpServer& guarded)
    : QObject(&guarded)
    , server(guarded)
    , usualPending(guarded.maxPendingConnections())
{
    retry.setSingleShot(true);
    retry.setInterval(retryInterval);
    connect(&retry, &QTimer::timeout, this, &AcceptGate::open);
    // Before an accept: a failing one may leave Qt spinning without a word. During a run of them:
    // Qt accepts all that is queued before it comes back to the event loop. After a failed one:
    // other threads take descriptors, too.
    for (QSocketNotifier* notifier : server.findChildren<QSocketNotifier*>())
        notifier->installEventFilter(this);
    connect(&server, &QTcpServer::newConnection, this, &AcceptGate::closeIfLow);
    connect(&server, &QTcpServer::acceptError, this, &AcceptGate::close);
}

bool AcceptGate::eventFilter(QObject* /*notifier*/, QEvent* event)
{
    return event->type() == QEvent::SockAct && closeIfLow();
}

bool AcceptGate::closeIfLow()
{
    const bool low = descriptorsRunLow(static_cast<int>(server.socketDescriptor()));
    if (low)
        close();
    return low;
}

void AcceptGate::close()
{
    server.setMaxPendingConnections(0); // ends Qt's accept loop if we are called from within
    server.pauseAccepting();
    retry.start();
}

void AcceptGate::open()
{
    server.setMaxPendingConnections(usualPending);
    server.resumeAccepting();
}

} // namespace

void keepDescriptorsFree(QTcpServer& server)
{
    new AcceptGate(server); // its child
}

} // namespace SingleInstance

#else

void SingleInstance::keepDescriptorsFree(QTcpServer& /*server*/) { }

#endif
