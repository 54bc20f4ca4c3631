#pragma once

#include "AnswerChannel.h"

#include <QtCore/QByteArray>
#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

#include <memory>

class QSocketNotifier;

namespace HostKit {

/*!
    A launch that waits for its answer.

    The process that has the launch connects and keeps the connection until it answers. If it hands
    the launch on, it says to whom. Until the next process connects, the launch watches that
    process, since it may be killed. The spool needs no watching: some process will take the launch
    from there.

    Runs the event loop of an application object without windows, in that object's thread.
*/
class AnswerWait : public QObject {
public:
    /*! Listens for the launch \a id. Call it before the hand-over. */
    explicit AnswerWait(const QByteArray& id);
    ~AnswerWait() override;

    /*! Returns whether it listens. */
    bool isListening() const;

    /*!
        Waits for the answer, after the hand-over to the process \a holder, or to the spool if that
        is 0. Returns the exit code for this process: that of the answer, whose text goes to
        standard error; 1 with a message if the process that had the launch died; 130 after a
        signal.
    */
    int run(quint32 holder);

private:
    void accept();
    void read();
    void lose();
    void watch(quint32 process);
    void giveUp(int timeout);
    void stopWatching();
    void end(int exitCode, const QString& text);

    std::unique_ptr<AnswerDirectory> directory; // the server removes its socket by its path
    QLocalServer server;
    std::unique_ptr<QLocalSocket> holder; // the process that has the launch, once it has connected
    std::unique_ptr<QSocketNotifier> holderEnd; // until then
    QByteArray received; // from it
    bool hasConnected = false; // since the launch moved last
    int exitCode = 130;
};

} // namespace HostKit
