#pragma once

#include "Envelope.h"

#include <QtCore/QHash>
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

    It empties the controller's inbox as that fills, in the master's own thread, and joins the lists
    of a launch. So what arrives until that thread has ended outlives the controller. It keeps 64 MiB;
    a list that finds no place is refused with a warning. Any thread.
*/
class Inbox {
public:
    /*! Begins with \a older lists, of a process before. */
    explicit Inbox(const QList<QStringList>& older);

    /*!
        Lets \a inbox take over all lists of \a controller, those that are there and those to come.
        Calls \a arrived in the master's thread behind each of the latter. Keeps the inbox for as
        long as the controller lives.
    */
    static void fillFrom(SingleInstance::SingleInstanceController& controller,
                         const std::shared_ptr<Inbox>& inbox, const std::function<void()>& arrived);

    bool isEmpty();
    LaunchMessage takeFirst();

    /*! Returns the lists that carry the launches, and removes these. */
    QList<QStringList> takeAll();

    /*!
        Waits until everything has arrived that was handed over to this process, which listens on
        \a port, before this call. Blocks for a second at most, normally for a millisecond; needs no
        event loop. Returns whether it has.
    */
    bool flush(quint16 port);

private:
    /* The chunks of a launch of which some are missing. */
    struct Incomplete {
        QMap<int, Chunk> chunks;
        qint64 size = 0;
        qint64 number = 0; // the lower, the older
    };

    void takeFrom(SingleInstance::SingleInstanceController& controller);
    void add(const QStringList& list);
    void join(const Chunk& chunk, qint64 size);
    void dropOldestIncomplete();
    bool sendMark(quint16 port, const QDeadlineTimer& deadline);
    int countArrived();

    // Members, for what is static may be gone when exit() ends the session.
    const QString mark = QUuid::createUuid().toString();
    std::mutex mutex;
    std::condition_variable changed;
    QList<LaunchMessage> messages;
    QHash<QByteArray, Incomplete> incomplete; // by the identity of the launch
    qint64 size = 0; // of the messages, in bytes
    qint64 incompleteSize = 0;
    qint64 incompleteNumber = 0;
    bool isRefusing = false;
    int allArrived = 0; // lists and marks, since the beginning
    int marks = 0; // of our own
    int marksSent = 0; // by the thread that flushes
};

} // namespace HostKit
