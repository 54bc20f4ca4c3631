#pragma once

#include <QtCore/QStringList>
#include <QtCore/QThread>

#include <functional>
#include <memory>

namespace SingleInstance {

/*!
    Returns a thread, not yet started, that serves as the master's endpoint for one run.

    Once started it listens on the loopback interface, claims the settings slot and calls
    \a startedCallback exactly once, in its own thread, before anything is received: with true when
    it serves, with false when it is about to end. While it serves it calls \a messageCallback in
    its own thread for each list that arrives. Both must stay valid until the thread has finished.

    End it with QThread::quit(); it then gives the slot back if it still holds it. A terminated
    thread leaves its port there. The caller owns the thread object, which belongs to the calling
    thread, and destroys it only after the thread has finished.
*/
std::unique_ptr<QThread> makeServerThread(std::function<void(bool)> startedCallback,
                                          std::function<void(const QStringList&)> messageCallback);

} // namespace SingleInstance
