#pragma once

#include <HostKit/export.h>

namespace HostKit {

/*!
    Makes SIGTERM, SIGINT and SIGHUP quit the application by QCoreApplication::quit(), so that a
    logout or `systemctl stop` loses nothing.

    \code
    QApplication application(launch.argc(), launch.argv());
    HostKit::quitOnSignals();
    \endcode

    Call it once, behind the application object, in that object's thread. A signal that comes before
    the event loop runs quits it as soon as it does. The second signal of a kind ends the process as
    if nobody had called this. A signal that the process ignores, as nohup makes it ignore SIGHUP,
    stays ignored. Returns whether it was set up: the system may refuse the two file descriptors
    that it takes.
*/
HOSTKIT_EXPORT bool quitOnSignals();

} // namespace HostKit
