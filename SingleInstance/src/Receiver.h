#pragma once

#include <QtCore/QStringList>
#include <QtNetwork/QTcpSocket>

#include <functional>
#include <memory>

namespace SingleInstance {

/*! Takes each argument list that arrives, in the thread of the sockets. */
using MessageCallback = std::function<void(const QStringList&)>;

/*!
    Reads one hand-off message from \a socket, hands its list to \a messageCallback, and closes.

    Effect:    returns at once. The rest happens in the event loop of the calling thread, to which
               the socket must belong. If the callback is empty, the message is discarded.
    Ownership: the reader owns the socket and itself. It ends with the message, with the connection,
               or with \a parent.
    Failures:  invalid bytes are logged and dropped. A peer that sends nothing keeps its connection
               until it disconnects or \a parent is destroyed: there is no time limit. A null socket
               ends the process.
*/
void receiveMessage(std::unique_ptr<QTcpSocket> socket,
                    std::shared_ptr<MessageCallback> messageCallback, QObject* parent);

} // namespace SingleInstance
