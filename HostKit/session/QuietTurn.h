#pragma once

#include <QtCore/QObject>

#include <atomic>
#include <functional>
#include <memory>

namespace HostKit {

/*!
    Does a work in a turn of the application's event loop that nothing else had a part in.

    A loop that was told to quit still finishes its turn, and nobody can ask it whether it was. But
    what tells it so is some event as a rule: if none was delivered from the beginning of one turn
    to the beginning of the next, the loop goes on, and no request to quit had waited among the
    events. Where there is no such turn among the next ones, one in which the loop goes on has to
    do.

    Belongs to the application's thread. The work may delete this object, or run an event loop.
*/
class QuietTurn : public QObject {
public:
    explicit QuietTurn(std::function<void()> work);

    /*! Has the work done once, in a turn that begins after this call. Any thread. */
    void request();

    bool event(QEvent* event) override;
    bool eventFilter(QObject* receiver, QEvent* event) override;

private:
    class Turn;

    const std::function<void()> work;
    const std::shared_ptr<std::atomic<bool>> isPosted = std::make_shared<std::atomic<bool>>(false);
    int turns = 0; // since the first event of the request, which 0 is
    bool isDisturbed = false; // in this turn, by another event
};

} // namespace HostKit
