#include "AnswerChannel.h"

#include "ConfigDirectory.h"

#include <QtCore/QDataStream>

namespace HostKit {

namespace {

constexpr int timeout = 1000; // ms
constexpr auto streamVersion = QDataStream::Qt_5_0;

} // namespace

QStringList answerSockets(const QByteArray& id)
{
    QStringList paths;
    if (id.isEmpty())
        return paths;
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
    stream << qint32(answer.exitCode) << answer.text;
    return bytes;
}

bool unpack(const QByteArray& bytes, Answer& answer)
{
    QDataStream stream(bytes);
    stream.setVersion(streamVersion);
    qint32 exitCode = 0;
    stream >> exitCode >> answer.text;
    answer.exitCode = exitCode;
    return stream.status() == QDataStream::Ok;
}

AnswerChannel::AnswerChannel(const QByteArray& id)
{
    for (const QString& path : answerSockets(id)) {
        socket.connectToServer(path);
        if (socket.waitForConnected(timeout))
            return;
    }
}

bool AnswerChannel::isOpen() const
{
    return socket.state() == QLocalSocket::ConnectedState;
}

void AnswerChannel::send(int exitCode, const QString& text)
{
    if (!isOpen())
        return;
    socket.write(packed({exitCode, text}));
    socket.flush();
    if (socket.bytesToWrite() > 0)
        socket.waitForBytesWritten(timeout);
    socket.close();
}

} // namespace HostKit
