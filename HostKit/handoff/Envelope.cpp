#include "Envelope.h"

#include "ActivationToken.h"
#include "MessageFormat.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRandomGenerator>

#include <algorithm>
#include <array>

namespace HostKit {

namespace {

constexpr int maxChunkSize = 32000; // UTF-16 units; the envelope takes less than what is left
constexpr int maxChunkCount = 4096;

const QLatin1String beginning("\1HostKit ");
const QLatin1String idKey("id");
const QLatin1String folderKey("folder");
const QLatin1String tokenKey("token");
const QLatin1String waitKey("wait");
const QLatin1String chunkKey("chunk");
const QLatin1String markKey("mark");

QString envelopeWith(const QJsonObject& fields)
{
    const QByteArray text = QJsonDocument(fields).toJson(QJsonDocument::Compact);
    return beginning + QLatin1String("1 ") + QString::fromUtf8(text);
}

bool isId(const QByteArray& text)
{
    return text.size() == 32 && std::all_of(text.begin(), text.end(), [](char c) {
               return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
           });
}

void readFields(const QJsonObject& fields, Received& received)
{
    LaunchMessage& message = received.message;
    const QByteArray id = fields.value(idKey).toString().toUtf8();
    if (isId(id))
        message.id = id;
    const QString folder = fields.value(folderKey).toString();
    if (folder.startsWith(QLatin1Char('/')))
        message.workingFolder = folder;
    const QByteArray token = fields.value(tokenKey).toString().toUtf8();
    if (isValidToken(token))
        message.activationToken = token;
    message.isWaiting = fields.value(waitKey).toBool() && !message.id.isEmpty();
    received.mark = fields.value(markKey).toString();

    const QJsonArray chunk = fields.value(chunkKey).toArray();
    const int number = chunk.at(0).toInt();
    const int count = chunk.at(1).toInt();
    if (number >= 1 && number <= count && count <= maxChunkCount && !message.id.isEmpty()) {
        received.chunk = number;
        received.chunkCount = count;
    }
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
    QJsonObject fields = {{idKey, QString::fromLatin1(message.id)}};
    if (!message.workingFolder.isEmpty())
        fields.insert(folderKey, message.workingFolder);
    if (isValidToken(message.activationToken))
        fields.insert(tokenKey, QString::fromLatin1(message.activationToken));
    if (message.isWaiting)
        fields.insert(waitKey, true);
    return QStringList(envelopeWith(fields)) + message.arguments;
}

QList<QStringList> chunksOf(const LaunchMessage& message)
{
    const QStringList whole = enveloped(message);
    if (SingleInstance::packedSize(whole) <= SingleInstance::maxBodySize)
        return {whole};
    const QByteArray bytes = SingleInstance::packArguments(whole); // an even number
    const QString text(reinterpret_cast<const QChar*>(bytes.constData()), bytes.size() / 2);
    const auto count = static_cast<int>((text.size() + maxChunkSize - 1) / maxChunkSize);
    QList<QStringList> chunks;
    for (int number = 1; number <= count; ++number) {
        const QJsonObject fields = {{idKey, QString::fromLatin1(message.id)},
                                    {waitKey, message.isWaiting},
                                    {chunkKey, QJsonArray{number, count}}};
        chunks.append({envelopeWith(fields), text.mid((number - 1) * maxChunkSize, maxChunkSize)});
    }
    return chunks;
}

Received joined(const QMap<int, QString>& chunks)
{
    QByteArray bytes;
    for (const QString& text : chunks)
        bytes.append(reinterpret_cast<const char*>(text.utf16()), 2 * text.size());
    QStringList list;
    SingleInstance::unpackArguments(bytes, list);
    return opened(list);
}

QStringList markedList(const QString& mark)
{
    return {envelopeWith({{markKey, mark}})};
}

Received opened(const QStringList& list)
{
    Received received;
    const QString envelope = list.value(0);
    if (!envelope.startsWith(beginning)) {
        if (list != SingleInstance::noArguments())
            received.message.arguments = list;
        return received;
    }
    received.message.arguments = list.mid(1);
    const QByteArray fields = envelope.mid(envelope.indexOf(QLatin1Char('{'))).toUtf8();
    readFields(QJsonDocument::fromJson(fields).object(), received);
    return received;
}

} // namespace HostKit
