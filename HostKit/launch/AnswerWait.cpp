#include "AnswerWait.h"

#include "AnswerChannel.h"
#include "Arbitration.h"
#include "ConfigDirectory.h"
#include "MessageSpool.h"

#include <HostKit/Signals.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFileSystemWatcher>
#include <QtCore/QSocketNotifier>
#include <QtCore/QTimer>

#include <cerrno>
#include <cstdio>

#include <sys/syscall.h>
#include <unistd.h>

namespace HostKit {

namespace {

constexpr int maxAnswerSize = 1 << 20; // bytes
constexpr int lookAgainAtOnce = 100; // ms, behind a connection that is among the events
constexpr int lookAgainLater = 1000;
constexpr int lookNoMore = -1;

/* Returns a descriptor that becomes readable when \a process ends, or -1. */
int openProcess(quint32 process)
{
    return static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(process), 0));
}

} // namespace

AnswerWait::AnswerWait(const QByteArray& launchId)
    : id(launchId)
{
    server.setSocketOptions(QLocalServer::UserAccessOption);
    for (const QString& path : answerSockets(id)) {
        if (createParentOf(path) && server.listen(path))
            break;
    }
    connect(&server, &QLocalServer::newConnection, this, &AnswerWait::accept);
}

AnswerWait::~AnswerWait()
{
    if (receiver)
        receiver->disconnect(this); // it goes with the server, after members that it would use
    closeProcess();
}

bool AnswerWait::isListening() const
{
    return server.isListening();
}

int AnswerWait::run(quint32 master)
{
    quitOnSignals();
    watch(master);
    QCoreApplication::exec();
    return exitCode;
}

/* The last one counts: the process that had the launch may be gone, unnoticed so far. */
void AnswerWait::accept()
{
    QLocalSocket* const socket = server.nextPendingConnection();
    if (!socket)
        return;
    if (receiver) {
        receiver->disconnect(this);
        receiver->deleteLater();
    }
    receiver = socket;
    received.clear();
    wasReceived = true;
    closeProcess();
    connect(socket, &QLocalSocket::readyRead, this, &AnswerWait::read);
    connect(socket, &QLocalSocket::disconnected, this, [this] {
        read();
        receiver->deleteLater();
        receiver = nullptr;
        follow(lookAgainAtOnce);
    });
    read();
}

void AnswerWait::read()
{
    if (receiver->isOpen())
        received += receiver->read(maxAnswerSize - received.size());
    Answer answer;
    if (unpack(received, answer))
        end(answer.exitCode, answer.text);
}

/*
 * Looks where the launch is, once its process is gone. It is in the spool; or a master took it from
 * there, under the launch lock, and connects; or it went down with its process. A master that got it
 * from another one may take a moment to connect.
 */
void AnswerWait::follow(int lookAgain)
{
    if (receiver || hasEnded)
        return;
    const FileLock launchLock = takeLaunchLock(std::chrono::seconds(1));
    spool = std::make_unique<QFileSystemWatcher>(spoolDirectories());
    connect(
        spool.get(), &QFileSystemWatcher::directoryChanged, this,
        [this] { follow(lookAgainAtOnce); }, Qt::QueuedConnection);
    if (isSpooled(id))
        return;
    spool.reset();
    if (!launchLock.isTaken()) // somebody starts or ends just now, and may have it
        QTimer::singleShot(0, this, [this, lookAgain] { follow(lookAgain); });
    else if (lookAgain >= 0)
        QTimer::singleShot(lookAgain, this, [this] { follow(lookNoMore); });
    else
        end(1,
            wasReceived ? QStringLiteral("the application ended without an answer\n")
                        : QStringLiteral("the application ended before it opened this\n"));
}

/* Waits for the end of the process that has the launch, unless it connects before. */
void AnswerWait::watch(quint32 watched)
{
    const int descriptor = watched == 0 ? -1 : openProcess(watched);
    if (descriptor < 0) { // there is none, or it ended in this moment, or cannot be seen from here
        if (watched == 0 || errno == ESRCH)
            QTimer::singleShot(0, this, [this] { follow(lookAgainLater); });
        return;
    }
    process = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    connect(process.get(), &QSocketNotifier::activated, this, [this] {
        closeProcess();
        follow(lookAgainLater);
    });
}

void AnswerWait::closeProcess()
{
    if (!process)
        return;
    const auto descriptor = static_cast<int>(process->socket());
    process->setEnabled(false);
    process.release()->deleteLater(); // it may be calling us
    ::close(descriptor);
}

void AnswerWait::end(int itsExitCode, const QString& text)
{
    if (hasEnded)
        return;
    hasEnded = true;
    exitCode = itsExitCode;
    std::fputs(text.toLocal8Bit().constData(), stderr);
    QCoreApplication::quit();
}

} // namespace HostKit
