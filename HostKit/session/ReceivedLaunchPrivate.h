#pragma once

#include "Envelope.h"

namespace HostKit {

/*! What all copies of a received launch share. The application's thread. */
struct ReceivedLaunchPrivate {
    explicit ReceivedLaunchPrivate(LaunchMessage received);

    /*! Ends the wait of the launch with the exit code 0, if it still waits. */
    ~ReceivedLaunchPrivate();
    Q_DISABLE_COPY_MOVE(ReceivedLaunchPrivate)

    void answer(int exitCode, const QString& text) const;

    const LaunchMessage message;
};

} // namespace HostKit
