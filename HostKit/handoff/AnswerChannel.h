#pragma once

#include "UniqueFd.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace HostKit {

struct LaunchMessage;

/*
 * The way back to a launch that waits for an answer: a local socket of that launch, which only its
 * user may open. The id of the launch, which is checked, is a part of its name. So no launch can
 * make a master open another file.
 */

/*! Returns the paths at which the launch \a id may listen, in the order in which it tries them. */
QStringList answerSockets(const QByteArray& id);

/*! What the process that has a launch tells it. */
struct Answer {
    /*! The launch moved to the process \a value; to the spool if that is 0. Otherwise it ends with
        the exit code \a value and \a text for standard error. */
    bool hasMoved = false;
    qint32 value = 0;
    QString text;
};

/*! Returns the bytes of \a answer. */
QByteArray packed(const Answer& answer);

/*! Returns the answer in \a bytes, or nothing while they are not complete. */
std::optional<Answer> unpacked(const QByteArray& bytes);

/*!
    The receiving process's end of the way back. It is open from its construction until an answer is
    sent, the launch ends, or the object is destroyed. If it closes without an answer, the launch
    concludes that the process died. One thread at a time.
*/
class AnswerChannel {
public:
    /*! Connects to the launch \a id. Blocks for microseconds. */
    explicit AnswerChannel(const QByteArray& id);

    /*! Returns whether the launch still waits. */
    bool isOpen() const;

    /*! Sends \a answer and closes. Does nothing if the channel is closed. Blocks for a second at
        most, if the launch is stopped and the text is long. */
    void send(const Answer& answer);

private:
    UniqueFd socket;
};

/*! Connects \a launch to the process that it came from, if that waits for an answer. */
void connectBack(LaunchMessage& launch);

} // namespace HostKit
