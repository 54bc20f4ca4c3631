#pragma once

#include <QtCore/QStringList>
#include <QtCore/QThread>

#include <functional>
#include <memory>

namespace SingleInstance {

/*!
    Returns a thread that is the master's endpoint for one run. It is not started yet.

    When it runs, it listens on the loopback interface and claims the settings slot. Then it calls
    \a startedCallback exactly once, in its own thread, before anything is received: with true if it
    serves, with false if it is about to end. While it serves, it calls \a messageCallback in its
    own thread for each list that arrives. Both callbacks must stay valid until the thread has
    finished.

    End it with QThread::quit(). Then it gives the slot back, if it still holds it. A terminated
    thread leaves its port there. The caller owns the thread object, which belongs to the calling
    thread, and must not destroy it before the thread has finished.
*/
std::unique_ptr<QThread> makeServerThread(std::function<void(bool)> startedCallback,
                                          std::function<void(const QStringList&)> messageCallback);

} // namespace SingleInstance
