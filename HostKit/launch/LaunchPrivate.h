#pragma once

#include "CommandLine.h"

#include <QtCore/QByteArray>

namespace HostKit {

/*! What the session knows of the launch in front of it. The application's thread. */
struct LaunchPrivate {
    CommandLine line; // to which the application object refers
    QByteArray startupId; // by which a desktop waits for this process; Qt removes it
    QByteArray activationToken; // Qt may remove that, too
    bool hasWaitedInVain = false; // for the launch lock
    bool isHandedOver = false;

    static LaunchPrivate* current; // or null
};

} // namespace HostKit
