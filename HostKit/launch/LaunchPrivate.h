#pragma once

#include "Arbitration.h"
#include "CommandLine.h"

#include <QtCore/QByteArray>

#include <optional>

class QCommandLineParser;

namespace HostKit {

/*! Returns what this process hands over, as yet without arguments. */
LaunchMessage thisLaunch();

/*! What the session knows of the launch in front of it. The application's thread. */
struct LaunchPrivate {
    LaunchPrivate(int argc, char** argv);
    ~LaunchPrivate();
    Q_DISABLE_COPY_MOVE(LaunchPrivate)

    CommandLine line; // to which the application object refers
    LaunchMessage message; // what the launch hands over
    const QByteArray startupId; // by which a desktop waits for this process; Qt removes it
    std::optional<Decision> decision; // until the session takes it
    bool isNewInstance = false;
    bool isHandedOver = false;
    std::optional<int> exitCode; // if the launch is done

    static LaunchPrivate* current; // or null
};

} // namespace HostKit
