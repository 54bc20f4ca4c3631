#include "AnswerWait.h"

#include "Directories.h"

#include <HostKit/QuitOnSignals.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>

#include <cstdio>

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace HostKit {

namespace {

constexpr int maxAnswerSize = 1 << 20; // bytes
constexpr int lastMoment = 1000; // ms, in which a process must connect if it cannot be watched

} // namespace

AnswerWait::AnswerWait(const QByteArray& id)
{
    server.setSocketOptions(QLocalServer::UserAccessOption);
    for (const QString& path : answerDirectories()) {
        if (server.isListening() || !createParentOf(path + QLatin1String("/socket")))
            continue;
        directory = std::make_unique<AnswerDirectory>(path);
        server.listen(directory->socketPath(id));
    }
    connect(&server, &QLocalServer::newConnection, this, &AnswerWait::accept);
}

AnswerWait::~AnswerWait()
{
    stopWatching();
    if (holder)
        holder->disconnect(this);
}

bool AnswerWait::isListening() const
{
    return server.isListening();
}

int AnswerWait::run(quint32 firstHolder)
{
    quitOnSignals();
    watch(firstHolder);
    QCoreApplication::exec();
    return exitCode;
}

/* The newest connection counts: it may come before the old process says that the launch moved. */
void AnswerWait::accept()
{
    while (QLocalSocket* const next = server.nextPendingConnection()) {
        hasConnected = true;
        if (holder) {
            holder->disconnect(this);
            holder.release()->deleteLater(); // it may be calling us
        }
        next->setParent(nullptr);
        holder.reset(next);
        received.clear();
        stopWatching();
        connect(next, &QLocalSocket::readyRead, this, &AnswerWait::read);
        connect(next, &QLocalSocket::disconnected, this, &AnswerWait::lose);
    }
    read();
}

void AnswerWait::read()
{
    if (!holder)
        return;
    received += holder->read(maxAnswerSize - received.size());
    const auto answer = unpacked(received);
    if (!answer)
        return;
    holder->disconnect(this);
    holder.release()->deleteLater();
    if (answer->hasMoved)
        watch(static_cast<quint32>(answer->value));
    else
        end(answer->value, answer->text);
}

void AnswerWait::lose()
{
    read();
    if (holder)
        end(1, QStringLiteral("the application ended without an answer\n"));
}

/* Watches a process that has the launch and has not connected yet. */
void AnswerWait::watch(quint32 process)
{
    hasConnected = false;
    if (process == 0)
        return;
    const auto descriptor =
        static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(process), 0));
    if (descriptor < 0) { // it has ended, or this process may not see it
        QMetaObject::invokeMethod(
            this, [this] { giveUp(lastMoment); }, Qt::QueuedConnection);
        return;
    }
    holderEnd = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    connect(holderEnd.get(), &QSocketNotifier::activated, this, [this] { giveUp(0); });
}

/*
 * Ends the wait, unless a connection waits that the event loop has not noticed yet. Only the event
 * loop may accept it: the server would block if another call had accepted it before.
 */
void AnswerWait::giveUp(int timeout)
{
    stopWatching();
    pollfd waiting = {static_cast<int>(server.socketDescriptor()), POLLIN, 0};
    if (!hasConnected && ::poll(&waiting, 1, timeout) <= 0)
        end(1, QStringLiteral("the application ended before it opened this\n"));
}

void AnswerWait::stopWatching()
{
    if (!holderEnd)
        return;
    holderEnd->setEnabled(false);
    ::close(static_cast<int>(holderEnd->socket()));
    holderEnd.release()->deleteLater(); // it may be calling us
}

void AnswerWait::end(int itsExitCode, const QString& text)
{
    exitCode = itsExitCode;
    std::fputs(text.toLocal8Bit().constData(), stderr);
    QCoreApplication::quit();
}

} // namespace HostKit
