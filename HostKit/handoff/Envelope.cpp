#include "Envelope.h"

#include "ActivationToken.h"
#include "MessageFormat.h"

#include <QtCore/QDir>
#include <QtCore/QRandomGenerator>
#include <QtCore/QRegularExpression>

#include <algorithm>
#include <array>

namespace HostKit {

using SingleInstance::maxBodySize;
using SingleInstance::noArguments;
using SingleInstance::packedSize;

namespace {

constexpr QChar sign(u'\1'); // in front of each string of an envelope; alone, it ends the envelope
constexpr int maxChunks = 4096; // a list of 256 MiB
constexpr int maxFolderSize = 4096; // UTF-16 units

QString field(const QString& text)
{
    return sign + text;
}

QString beginning()
{
    return field(QStringLiteral("HostKit 1"));
}

bool isEnvelope(const QStringList& list)
{
    return !list.isEmpty() && list.first().startsWith(field(QStringLiteral("HostKit ")));
}

bool isId(const QString& text)
{
    static const QRegularExpression digits(QStringLiteral("\\A[0-9a-f]{32}\\z"));
    return digits.match(text).hasMatch();
}

QStringList fieldsOf(const LaunchMessage& message)
{
    QStringList fields = {beginning(),
                          field(QStringLiteral("id ") + QString::fromLatin1(message.id))};
    if (!message.workingFolder.isEmpty() && message.workingFolder.size() <= maxFolderSize)
        fields.append(field(QStringLiteral("folder ") + message.workingFolder));
    if (isValidToken(message.activationToken))
        fields.append(
            field(QStringLiteral("token ") + QString::fromLatin1(message.activationToken)));
    if (message.isWaiting)
        fields.append(field(QStringLiteral("wait")));
    return fields;
}

struct Part {
    QStringList arguments;
    bool isContinued = false;
};

/* Divides arguments so that each part takes \a maxSize bytes at most. */
QList<Part> divided(const QStringList& arguments, qint64 maxSize)
{
    QList<Part> parts = {Part()};
    qint64 left = maxSize;
    for (const QString& argument : arguments) {
        const qint64 size = packedSize(argument);
        if (size > left && !parts.last().arguments.isEmpty()) {
            parts.append(Part());
            left = maxSize;
        }
        const int maxUnits = static_cast<int>((maxSize - packedSize(QString())) / 2);
        parts.last().arguments.append(argument.left(maxUnits));
        for (int begin = maxUnits; begin < argument.size(); begin += maxUnits) {
            parts.append({{argument.mid(begin, maxUnits)}, true});
            left = maxSize;
        }
        left -= packedSize(parts.last().arguments.last());
    }
    return parts;
}

/* Reads one string of an envelope. What is unknown or wrong is passed over. */
void readField(const QString& text, Chunk& chunk)
{
    const QString name = text.section(QLatin1Char(' '), 0, 0);
    const QString value = text.section(QLatin1Char(' '), 1);
    const auto numbers = value.split(QLatin1Char(' '));
    const int number = numbers.value(0).toInt();
    const int count = numbers.value(1).toInt();
    if (name == QLatin1String("id") && isId(value))
        chunk.message.id = value.toLatin1();
    else if (name == QLatin1String("folder") && QDir::isAbsolutePath(value))
        chunk.message.workingFolder = value;
    else if (name == QLatin1String("token") && isValidToken(value.toUtf8()))
        chunk.message.activationToken = value.toUtf8();
    else if (name == QLatin1String("wait"))
        chunk.message.isWaiting = true;
    else if (name == QLatin1String("continued"))
        chunk.isContinued = true;
    else if (name == QLatin1String("mark"))
        chunk.mark = value;
    else if (name == QLatin1String("chunk") && number >= 1 && number <= count
             && count <= maxChunks) {
        chunk.number = number;
        chunk.count = count;
    }
}

QStringList withoutBlank(const QStringList& arguments)
{
    return arguments == noArguments() ? QStringList() : arguments;
}

} // namespace

QByteArray newLaunchId()
{
    std::array<quint32, 4> bits = {};
    QRandomGenerator::system()->fillRange(bits.data(), static_cast<qsizetype>(bits.size()));
    return QByteArray(reinterpret_cast<const char*>(bits.data()), sizeof bits).toHex();
}

QStringList enveloped(const LaunchMessage& message)
{
    return fieldsOf(message) + QStringList(sign) + message.arguments;
}

QList<QStringList> chunksOf(const LaunchMessage& message)
{
    const QStringList fields = fieldsOf(message);
    const QStringList longest = {field(QStringLiteral("chunk %1 %1").arg(maxChunks)),
                                 field(QStringLiteral("continued")), sign};
    const auto parts = divided(message.arguments, maxBodySize - packedSize(fields + longest));
    if (parts.size() == 1)
        return {enveloped(message)};
    QList<QStringList> lists;
    for (const Part& part : parts) {
        const auto number = lists.size() + 1;
        QStringList list = fields;
        list.append(field(QStringLiteral("chunk %1 %2").arg(number).arg(parts.size())));
        if (part.isContinued)
            list.append(field(QStringLiteral("continued")));
        lists.append(list + QStringList(sign) + part.arguments);
    }
    return lists;
}

QStringList markedList(const QString& mark)
{
    return {beginning(), field(QStringLiteral("mark ") + mark), sign};
}

Chunk opened(const QStringList& list)
{
    Chunk chunk;
    if (!isEnvelope(list)) {
        chunk.message.arguments = withoutBlank(list);
        return chunk;
    }
    const auto end = std::find(list.begin(), list.end(), QString(sign));
    for (auto each = list.begin(); each != end; ++each) {
        if (each->startsWith(sign))
            readField(each->mid(1), chunk);
        else if (end == list.end()) // damaged
            chunk.message.arguments.append(*each);
    }
    if (end != list.end())
        chunk.message.arguments = list.mid(static_cast<int>(end - list.begin()) + 1);
    return chunk;
}

} // namespace HostKit
