#pragma once

#include <QtCore/QByteArray>

namespace HostKit {

/*!
    Tells the launcher that this process will open no window, so that it ends its busy cursor. \a id
    is what the launcher put into DESKTOP_STARTUP_ID, or nothing. Blocks for two seconds at most.
    Any thread.
*/
void endStartup(const QByteArray& id);

} // namespace HostKit
