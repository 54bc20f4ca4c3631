#pragma once

#include "UniqueFd.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

#include <sys/types.h>

namespace HostKit {

struct LaunchMessage;

/*
 * The way back to a launch that waits for an answer: a local socket of that launch, which only its
 * user may open. The id of the launch, which is checked, is a part of its name. So no launch can
 * make a master open another file.
 *
 * The socket is in the application's configuration directory, since all its processes have that in
 * common. Where that allows no sockets, it is in the runtime directory.
 */

/*! A directory of such sockets, by a short path: the path of a socket has 107 bytes at most. */
class AnswerDirectory {
public:
    explicit AnswerDirectory(const QString& path);

    /*! Returns the path for the launch \a id. It is good for the life of this object. */
    QString socketPath(const QByteArray& id) const;

private:
    const UniqueFd directory;
};

/*! Returns the paths of the directories in which a launch may listen, in their order. */
QStringList answerDirectories();

/*! What the process that has a launch tells it. */
struct Answer {
    /*! The launch moved to the process \a value; to the spool if that is 0. Otherwise it ends with
        the exit code \a value and \a text for standard error. */
    bool hasMoved = false;
    qint32 value = 0;
    QString text;
};

/*! Returns the bytes of \a answer. Its text is cut after 32,000 UTF-16 units. */
QByteArray packed(const Answer& answer);

/*! Returns the answer in \a bytes, or nothing while they are not complete. */
std::optional<Answer> unpacked(const QByteArray& bytes);

/*!
    The receiving process's end of the way back. It is open from its construction until an answer is
    sent, the launch ends, or the object is destroyed. If it closes without an answer, the launch
    concludes that the process died. One thread at a time; no function blocks.
*/
class AnswerChannel {
public:
    /*! Connects to the launch \a id. */
    explicit AnswerChannel(const QByteArray& id);

    /*! Returns whether the launch still waits. */
    bool isOpen() const;

    /*! Sends \a answer and closes. Does nothing if the channel is closed, or in a forked child. */
    void send(const Answer& answer);

private:
    UniqueFd socket;
    const pid_t process;
};

/*! Connects \a launch to the process that it came from, if that waits for an answer. */
void connectBack(LaunchMessage& launch);

} // namespace HostKit
