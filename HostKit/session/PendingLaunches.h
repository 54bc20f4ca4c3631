#pragma once

#include "Envelope.h"

#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QUuid>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

class QDeadlineTimer;

namespace SingleInstance {
class SingleInstanceController;
}

namespace HostKit {

/*!
    The launches that the application has not received yet, oldest first.

    In the master's server thread, this object empties the controller's inbox as that fills, joins
    the chunks of a launch, and connects to launches that wait for an answer. So everything that
    arrives before that thread ends outlives the controller. It keeps 64 MiB and refuses what
    exceeds that, with a warning. Any thread.
*/
class PendingLaunches {
public:
    /*! Begins with \a older launches, from an earlier process. */
    explicit PendingLaunches(const QList<LaunchMessage>& older);

    /*!
        Makes \a pending take all lists of \a controller, present and future. Calls \a arrived in
        the server thread after each future one. Keeps \a pending for as long as the controller
        lives.
    */
    static void fillFrom(SingleInstance::SingleInstanceController& controller,
                         const std::shared_ptr<PendingLaunches>& pending,
                         const std::function<void()>& arrived);

    bool isEmpty();
    LaunchMessage takeFirst();
    QList<LaunchMessage> takeAll();

    /*!
        Waits until everything has arrived that was handed over to this process before this call.
        This process listens on \a port. Usually blocks for a millisecond; at most for a second, and
        for two more if the port cannot be reached. Needs no event loop. Returns whether everything
        has arrived.
    */
    bool flush(quint16 port);

private:
    /* A launch of which some chunks are missing. */
    struct Incomplete {
        LaunchMessage message; // without arguments
        QMap<int, QString> chunks;
        qint64 size = 0;
    };

    void takeFrom(SingleInstance::SingleInstanceController& controller);
    void add(const Received& received);
    void join(const Received& received);
    void append(const LaunchMessage& message);
    void refuse(const LaunchMessage& message);
    void refuseOldestIncomplete();
    bool sendMark(quint16 port, const QDeadlineTimer& deadline);
    int countArrived();

    // Not static: exit() may destroy static objects before it ends the session.
    const QString mark = QUuid::createUuid().toString();
    std::mutex mutex;
    std::condition_variable changed;
    QList<LaunchMessage> messages;
    QList<Incomplete> incomplete; // oldest first
    qint64 size = 0; // of the messages, in bytes
    qint64 incompleteSize = 0;
    bool isRefusing = false;
    int allArrived = 0; // lists and marks, since the beginning
    int marks = 0; // of our own
    int marksSent = 0; // by the thread that flushes
};

} // namespace HostKit
