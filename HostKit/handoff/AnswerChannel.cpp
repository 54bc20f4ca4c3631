#include "AnswerChannel.h"

#include "Directories.h"
#include "Envelope.h"

#include <QtCore/QDataStream>
#include <QtCore/QFile>

#include <algorithm>

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace HostKit {

namespace {

constexpr timeval timeout = {1, 0}; // to send, if the launch is stopped
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
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0)
        return socket;
    const UniqueFd unused(socket);
    return -1;
}

} // namespace

QStringList answerSockets(const QByteArray& id)
{
    QStringList paths;
    for (const QString& directory : {runtimeDirectory(), configDirectory()}) {
        if (!directory.isEmpty())
            paths.append(directory + QLatin1String("/hostkit-") + QString::fromLatin1(id));
    }
    return paths;
}

QByteArray packed(const Answer& answer)
{
    QByteArray bytes;
    QDataStream stream(&bytes, QIODevice::WriteOnly);
    stream.setVersion(streamVersion);
    stream << answer.hasMoved << answer.value << answer.text;
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
{
    for (const QString& path : answerSockets(id)) {
        if (!socket.isValid())
            socket.reset(connectTo(path));
    }
}

bool AnswerChannel::isOpen() const
{
    char byte = 0; // the launch never sends one: recv() returns 0 only if it has closed
    return socket.isValid() && ::recv(socket.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) != 0;
}

void AnswerChannel::send(const Answer& answer)
{
    const QByteArray bytes = packed(answer);
    if (socket.isValid())
        ::send(socket.get(), bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL);
    socket.reset();
}

void connectBack(LaunchMessage& launch)
{
    if (launch.isWaiting)
        launch.channel = std::make_shared<AnswerChannel>(launch.id);
}

} // namespace HostKit
