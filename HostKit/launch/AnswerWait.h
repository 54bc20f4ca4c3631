#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QPointer>
#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

#include <memory>

class QFileSystemWatcher;
class QSocketNotifier;

namespace HostKit {

/*!
    A launch that waits for the answer of the process that received it.

    It follows its message from one process to the next, since a process that ends may have left it
    in the spool. Needs an application object without windows, whose event loop
    it runs. The thread of that object.
*/
class AnswerWait : public QObject {
public:
    /*! Listens for the launch \a id. Call it before the hand-over. */
    explicit AnswerWait(const QByteArray& id);
    ~AnswerWait() override;

    /*! Returns whether it listens. */
    bool isListening() const;

    /*!
        Waits for the answer, after the hand-over to the process \a master, or to the spool if that
        is 0. Returns the exit code of this process: that of the answer, whose text goes to standard
        error; 1 if the process that had the launch died, which is said there; 130 after a signal.
    */
    int run(quint32 master);

private:
    void accept();
    void read();
    void follow(int lookAgain);
    void watch(quint32 master);
    void closeProcess();
    void end(int exitCode, const QString& text);

    const QByteArray id;
    QLocalServer server;
    QPointer<QLocalSocket> receiver; // the process that received the launch
    QByteArray received;
    std::unique_ptr<QSocketNotifier> process; // that has the launch, as far as is known
    std::unique_ptr<QFileSystemWatcher> spool;
    int exitCode = 130;
    bool hasEnded = false;
    bool wasReceived = false;
};

} // namespace HostKit
