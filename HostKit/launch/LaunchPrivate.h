#pragma once

#include "Arbitration.h"
#include "ArgumentVector.h"

#include <QtCore/QByteArray>

#include <optional>

class QCommandLineParser;

namespace HostKit {

/*! Returns what this process hands over, as yet without arguments. */
LaunchMessage thisLaunch();

/*! A launch, which its session takes over. The application's thread. */
struct LaunchPrivate {
    LaunchPrivate(int argc, char** argv);
    ~LaunchPrivate();
    Q_DISABLE_COPY_MOVE(LaunchPrivate)

    ArgumentVector line; // the application object refers to it
    LaunchMessage message; // what the launch hands over
    const QByteArray startupId; // of the launcher's busy cursor; Qt removes it from the environment
    std::optional<Decision> decision; // until the session takes it
    bool isNewInstance = false;
    bool isHandedOver = false;
    std::optional<int> exitCode; // if the launch is done

    static LaunchPrivate* current; // or null
};

} // namespace HostKit
