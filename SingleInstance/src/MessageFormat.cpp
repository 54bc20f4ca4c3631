#include "MessageFormat.h"

#include <QtCore/QIODevice>
#include <QtCore/QtEndian>

#include <algorithm>
#include <numeric>

namespace SingleInstance {

namespace {

constexpr qint64 countSize = 4;
constexpr qint64 minRecordSize = 4; // an empty string: its length alone

} // namespace

QStringList noArguments()
{
    return {QStringLiteral(" ")};
}

QByteArray packArguments(const QStringList& arguments)
{
    QByteArray body;
    QDataStream stream(&body, QIODevice::WriteOnly);
    stream << static_cast<qint32>(arguments.size());
    for (const QString& argument : arguments)
        stream << argument;
    return body;
}

qint64 packedSize(const QString& argument)
{
    return minRecordSize + 2 * static_cast<qint64>(argument.size());
}

qint64 packedSize(const QStringList& arguments)
{
    return std::accumulate(
        arguments.begin(), arguments.end(), countSize,
        [](qint64 size, const QString& argument) { return size + packedSize(argument); });
}

QByteArray prefixed(const QByteArray& body)
{
    if (body.size() > maxBodySize)
        return {};
    QByteArray prefix(prefixSize, '\0');
    qToLittleEndian(static_cast<quint16>(body.size()), prefix.data());
    return prefix + body;
}

quint16 bodySize(const QByteArray& data)
{
    return qFromLittleEndian<quint16>(data.constData());
}

QDataStream::Status unpackArguments(const QByteArray& body, QStringList& arguments)
{
    QDataStream stream(body);
    quint32 count = 0;
    stream >> count;
    arguments.clear();
    const qint64 maxRecords = stream.device()->bytesAvailable() / minRecordSize;
    arguments.reserve(static_cast<int>(std::min<qint64>(count, maxRecords)));
    for (quint32 i = 0; i < count && stream.status() == QDataStream::Ok; ++i) {
        QString argument;
        stream >> argument;
        arguments.append(argument);
    }
    if (stream.status() != QDataStream::Ok)
        arguments.clear();
    return stream.status();
}

} // namespace SingleInstance
