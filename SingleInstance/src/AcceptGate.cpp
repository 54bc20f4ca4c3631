#include "AcceptGate.h"

#include "FileDescriptors.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QEvent>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>
#include <QtNetwork/QTcpServer>

namespace SingleInstance {

namespace {

constexpr int reserve = 32; // descriptors that are left to the host
constexpr int retryInterval = 100; // ms; no kernel tells when a descriptor becomes free
constexpr int countInterval = 10; // ms, on older kernels, where a count takes long
constexpr int cheapCount = 20000; // ns

class AcceptGate : public QObject {
public:
    explicit AcceptGate(QTcpServer& guarded);
    bool eventFilter(QObject* notifier, QEvent* event) override;

private:
    bool closeIfLow();
    bool isLow();
    void close();
    void open();

    QTcpServer& server;
    const int usualPending;
    QTimer retry;
    QElapsedTimer sinceCount;
    int spare = 0; // connections to accept before the next count
};

AcceptGate::AcceptGate(QTcpServer& guarded)
    : QObject(&guarded)
    , server(guarded)
    , usualPending(guarded.maxPendingConnections())
{
    retry.setSingleShot(true);
    retry.setInterval(retryInterval);
    connect(&retry, &QTimer::timeout, this, &AcceptGate::open);
    // Look before an accept: if it fails, Qt may spin without a message. Look between accepts: Qt
    // accepts all queued connections before it returns to the event loop. Look after a failed
    // accept: other threads take descriptors, too.
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
    const bool low = isLow();
    if (low)
        close();
    return low;
}

bool AcceptGate::isLow()
{
    if (spare > 0 && !sinceCount.hasExpired(countInterval)) {
        --spare;
        return false;
    }
    sinceCount.start();
    const int left = freeFileDescriptors();
    const bool isCheap = sinceCount.nsecsElapsed() < cheapCount;
    spare = isCheap ? 0 : (left - reserve) / 2; // the host may take the other half
    return left >= 0 && left <= reserve;
}

void AcceptGate::close()
{
    server.setMaxPendingConnections(0); // ends Qt's accept loop, if that calls this
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
