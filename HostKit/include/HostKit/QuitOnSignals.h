#pragma once

#include <HostKit/export.h>

namespace HostKit {

/*!
    Makes SIGTERM, SIGINT and SIGHUP quit the application by QCoreApplication::quit(), so that a
    logout or `systemctl stop` loses nothing. With Qt 6, that closes the windows first, and a window
    may refuse.

    \code
    QApplication application(launch.argc(), launch.argv());
    HostKit::quitOnSignals();
    \endcode

    Call it once, after the application object is built, in that object's thread. If a signal comes
    before the event loop runs, the loop quits as soon as it starts. Signals of the same kind count
    as one for one to two seconds, since one request often sends two. A later one ends the process
    as if this function had not been called. A signal that the process ignores stays ignored: nohup,
    for example, ignores SIGHUP.

    Returns false if there is no application object, if it was called before, or if the system
    refuses the two file descriptors that this takes.
*/
HOSTKIT_EXPORT bool quitOnSignals();

} // namespace HostKit
