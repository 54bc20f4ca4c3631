#pragma once

#include <QtCore/QDeadlineTimer>
#include <QtCore/QList>
#include <QtCore/QStringList>
#include <QtCore/QUuid>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace SingleInstance {
class SingleInstanceController;
}

namespace HostKit {

/*!
    The lists that the application has not received yet, oldest first.

    It empties the controller's inbox as it fills, in the master's own thread, so that what arrives
    until that thread has ended outlives the controller. Any thread.
*/
class Inbox {
public:
    /*! Has \a older, of a process before, to begin with. */
    explicit Inbox(const QList<QStringList>& older);

    /*!
        Has \a inbox take over all lists of \a controller, those that are there and those to come,
        and call \a arrived in the master's thread behind each of these. Keeps the inbox for as long
        as the controller lives.
    */
    static void fillFrom(SingleInstance::SingleInstanceController& controller,
                         const std::shared_ptr<Inbox>& inbox, const std::function<void()>& arrived);

    bool isEmpty();
    QStringList takeFirst();
    QList<QStringList> takeAll();

    /*!
        Waits until all that was handed over to this process, which listens on \a port, before this
        call is here. Blocks for a second at most, normally for a millisecond; needs no event loop.
        Returns whether it is.
    */
    bool flush(quint16 port);

private:
    void takeFrom(SingleInstance::SingleInstanceController& controller);
    bool sendMark(quint16 port, const QDeadlineTimer& deadline);
    int countArrived();

    // Members, for what is static may be gone when exit() ends the session.
    const QStringList mark = {QLatin1String("HostKit mark ") + QUuid::createUuid().toString()};
    std::mutex mutex;
    std::condition_variable changed;
    QList<QStringList> lists;
    int allArrived = 0; // lists and marks, since the beginning
    int marks = 0; // of our own
    int marksSent = 0; // by the thread that flushes
};

} // namespace HostKit
