#include "MessageFormat.h"

#include <QtCore/QIODevice>
#include <QtCore/QtEndian>

#include <algorithm>

namespace SingleInstance {

namespace {

constexpr qint64 shortestRecord = 4; // an empty string: its length alone

} // namespace

QByteArray packArguments(const QStringList& arguments)
{
    QByteArray body;
    QDataStream stream(&body, QIODevice::WriteOnly);
    stream << static_cast<qint32>(arguments.size());
    for (const QString& argument : arguments)
        stream << argument;
    return body;
}

QByteArray prefixed(const QByteArray& body)
{
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
    const qint64 mostRecords = stream.device()->bytesAvailable() / shortestRecord;
    arguments.reserve(static_cast<int>(std::min<qint64>(count, mostRecords)));
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
