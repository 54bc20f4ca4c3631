/*
 * Sends bytes to the receiver, in parts whose length is the first byte. Compares the received list
 * with the one that the bytes carry. The preset asan builds it with Clang's libFuzzer.
 */

#include "MessageFormat.h"
#include "Receiver.h"
#include "ScriptedHost.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QPointer>

#include <algorithm>
#include <array>

#include <sys/socket.h>
#include <unistd.h>

using namespace SingleInstance;

namespace {

constexpr int mostParts = 32; // each takes an iteration of the event loop

/* Returns the list in \a message, as the operator of QDataStream reads it, or none. */
QList<QStringList> carriedBy(const QByteArray& message)
{
    if (message.size() < prefixSize || message.size() < prefixSize + bodySize(message))
        return {};
    QDataStream stream(message.mid(prefixSize, bodySize(message)));
    if (message.size() >= prefixSize + 4 && message.mid(prefixSize, 4) > QByteArray("\0\1\0\0", 4))
        return {}; // with this count, the operator would reserve gigabytes
    QStringList list;
    stream >> list;
    return stream.status() == QDataStream::Ok ? QList<QStringList>{list} : QList<QStringList>();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static int argc = 0;
    static char* argv = nullptr;
    static QCoreApplication application(argc, &argv);
    if (size == 0)
        return 0;
    ScriptedHost::reset();

    std::array<int, 2> ends = {};
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()) != 0)
        qFatal("no socket");
    auto socket = std::make_unique<QTcpSocket>();
    socket->setSocketDescriptor(ends[0]);
    const QPointer<QTcpSocket> open = socket.get();
    QList<QStringList> lists;
    const auto keep = [&lists](const QStringList& list) { lists.append(list); };
    QObject parent;
    receiveMessage(std::move(socket), std::make_shared<MessageCallback>(keep), &parent);

    const QByteArray message(reinterpret_cast<const char*>(data) + 1, int(size) - 1);
    const int length = int(message.size());
    const int part = data[0] == 0 ? length + 1 : std::max(int(data[0]), length / mostParts + 1);
    for (int sent = 0; sent < length && open; sent += part) {
        const QByteArray bytes = message.mid(sent, part);
        if (::send(ends[1], bytes.data(), size_t(bytes.size()), MSG_NOSIGNAL | MSG_DONTWAIT) < 0)
            break;
        QCoreApplication::processEvents();
    }
    ::close(ends[1]);
    for (int i = 0; i < 10 && open; ++i) {
        QCoreApplication::processEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    if (open || lists != carriedBy(message))
        qFatal("the receiver stays, or this is not what was sent");
    return 0;
}
