#pragma once

#include <QtCore/QByteArray>

namespace HostKit {

/*!
    Tells the launcher that waits for \a id, if it waits, that no window will come of this process,
    so that it ends its busy cursor. Any thread; blocks for two seconds at most.
*/
void endStartup(const QByteArray& id);

} // namespace HostKit
