#pragma once

#include <QtCore/QStringList>

namespace SingleInstance {
class SingleInstanceController;
}

namespace HostKit {

/*!
    Waits until all that was handed over to this process before is in the inbox of \a controller,
    the master. Blocks the calling thread, for a second at most; needs no event loop.

    What it sends to itself for that stays in the inbox: see isFlushMark().
*/
Q_DECL_HIDDEN void flushInbox(SingleInstance::SingleInstanceController& controller);

/*! Returns whether \a list is one that flushInbox() of this process sent, and nobody else's. */
Q_DECL_HIDDEN bool isFlushMark(const QStringList& list);

} // namespace HostKit
