#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtNetwork/QLocalSocket>

namespace HostKit {

/*
 * The way back to a launch that waits for an answer: a local socket of that launch, for its user
 * alone. Its name is made from the identity of the launch and leads nowhere else, so that a list of
 * a stranger reaches no other socket.
 */

/*! Returns the paths at which the launch \a id may listen, in the order in which it tries them. */
QStringList answerSockets(const QByteArray& id);

/*! What an answer is. */
struct Answer {
    int exitCode = 0;
    QString text; // for standard error
};

/*! Returns the bytes of \a answer, and reads them. Reading returns whether they are complete. */
QByteArray packed(const Answer& answer);
bool unpack(const QByteArray& bytes, Answer& answer);

/*!
    The master's end of the way back. It is open from its construction until an answer is sent or
    the launch ends; a channel that is destroyed closes without an answer. Belongs to one thread.
*/
class AnswerChannel {
public:
    /*! Connects to the launch \a id. Blocks for a second at most, normally for microseconds. */
    explicit AnswerChannel(const QByteArray& id);

    /*! Returns whether the launch waits, as far as the event loop has noticed. */
    bool isOpen() const;

    /*! Sends the answer and closes. Does nothing if the channel is closed. */
    void send(int exitCode, const QString& text);

private:
    QLocalSocket socket;
};

} // namespace HostKit
