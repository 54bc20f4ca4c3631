#include "AnswerWait.h"

#include "AnswerChannel.h"
#include "Arbitration.h"
#include "ConfigDirectory.h"
#include "MasterLock.h"
#include "MessageSpool.h"
#include "SettingsSlot.h"

#include <HostKit/Signals.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QFileSystemWatcher>
#include <QtCore/QSocketNotifier>

#include <cerrno>
#include <cstdio>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

namespace HostKit {

namespace {

constexpr int maxAnswerSize = 1 << 20; // bytes

/* Returns a descriptor that becomes readable when \a process ends, or -1. */
int openProcess(qint64 process)
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

int AnswerWait::run()
{
    quitOnSignals();
    // From the loop, so that it may end it.
    QMetaObject::invokeMethod(this, &AnswerWait::follow, Qt::QueuedConnection);
    QCoreApplication::exec();
    return exitCode;
}

/* The first connection counts: nobody else knows the identity. */
void AnswerWait::accept()
{
    QLocalSocket* const socket = server.nextPendingConnection();
    if (!socket || receiver) {
        delete socket;
        return;
    }
    receiver = socket;
    connect(socket, &QLocalSocket::readyRead, this, &AnswerWait::read);
    connect(socket, &QLocalSocket::disconnected, this, [this] {
        read();
        end(1, QStringLiteral("the application ended without an answer\n"));
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
 * Looks where the launch is: in the spool, from which a master takes it under the launch lock, or
 * with the master that has taken it. If it is in neither place, it went down with its process.
 */
void AnswerWait::follow()
{
    if (receiver || hasEnded)
        return;
    const FileLock launchLock = takeLaunchLock(std::chrono::seconds(1));
    spool = std::make_unique<QFileSystemWatcher>(spoolDirectories());
    connect(spool.get(), &QFileSystemWatcher::directoryChanged, this, &AnswerWait::follow,
            Qt::QueuedConnection);
    if (isSpooled(id))
        return;
    spool.reset();
    if (!launchLock.isTaken()) // somebody starts or ends just now, and may have it
        QMetaObject::invokeMethod(this, &AnswerWait::follow, Qt::QueuedConnection);
    else if (hasLivingMaster())
        watch(SingleInstance::readMasterPid());
    else if (!std::exchange(wasMissed, true)) // its connection may be among the events
        QMetaObject::invokeMethod(this, &AnswerWait::follow, Qt::QueuedConnection);
    else
        end(1, QStringLiteral("the application ended before it opened this\n"));
}

void AnswerWait::watch(qint64 watched)
{
    const int descriptor = openProcess(watched);
    if (descriptor < 0) { // it ended in this moment, or cannot be seen from here
        if (!std::exchange(wasMissed, true))
            QMetaObject::invokeMethod(this, &AnswerWait::follow, Qt::QueuedConnection);
        return;
    }
    closeProcess();
    wasMissed = false;
    process = std::make_unique<QSocketNotifier>(descriptor, QSocketNotifier::Read);
    connect(process.get(), &QSocketNotifier::activated, this, [this] {
        closeProcess();
        follow();
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
