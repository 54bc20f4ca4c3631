#include "AnswerChannel.h"

#include "Directories.h"
#include "LaunchMessage.h"

#include <QtCore/QDataStream>
#include <QtCore/QFile>

#include <algorithm>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace HostKit {

namespace {

constexpr int maxTextSize = 32000; // UTF-16 units; the socket takes it at once
constexpr auto streamVersion = QDataStream::Qt_5_0;

/* Returns a descriptor, or -1. */
int connectTo(const QString& path)
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (static_cast<size_t>(name.size()) >= sizeof address.sun_path)
        return -1;
    std::copy(name.begin(), name.end(), address.sun_path);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return socket;
    const UniqueFd unused(socket);
    return -1;
}

} // namespace

AnswerDirectory::AnswerDirectory(const QString& path)
    : directory(::open(QFile::encodeName(path).constData(), O_PATH | O_DIRECTORY | O_CLOEXEC))
{
}

QString AnswerDirectory::socketPath(const QByteArray& id) const
{
    return QStringLiteral("/proc/self/fd/%1/hostkit-%2")
        .arg(directory.get())
        .arg(QString::fromLatin1(id));
}

QStringList answerDirectories()
{
    QStringList paths = {configDirectory()};
    if (!runtimeDirectory().isEmpty())
        paths.append(runtimeDirectory());
    return paths;
}

QByteArray packed(const Answer& answer)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(streamVersion);
    stream << answer.hasMoved << answer.value << answer.text.left(maxTextSize);
    return bytes;
}

std::optional<Answer> unpacked(const QByteArray& bytes)
{
    QDataStream stream(bytes);
    stream.setVersion(streamVersion);
    Answer answer;
    stream >> answer.hasMoved >> answer.value >> answer.text;
    return stream.status() == QDataStream::Ok ? std::make_optional(answer) : std::nullopt;
}

AnswerChannel::AnswerChannel(const QByteArray& id)
    : process(::getpid())
{
    for (const QString& path : answerDirectories()) {
        if (!socket.isValid())
            socket.reset(connectTo(AnswerDirectory(path).socketPath(id)));
    }
}

bool AnswerChannel::isOpen() const
{
    char byte = 0; // the launch never sends one: recv() returns 0 only if it has closed
    return socket.isValid() && ::recv(socket.get(), &byte, 1, MSG_PEEK) != 0;
}

void AnswerChannel::send(const Answer& answer)
{
    if (!socket.isValid() || ::getpid() != process)
        return;
    const QByteArray bytes = packed(answer);
    ::send(socket.get(), bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL);
    ::shutdown(socket.get(), SHUT_RDWR); // also for a forked child
    socket.reset();
}

void connectBack(LaunchMessage& launch)
{
    if (launch.isWaiting && !launch.channel)
        launch.channel = std::make_shared<AnswerChannel>(launch.id);
}

} // namespace HostKit
