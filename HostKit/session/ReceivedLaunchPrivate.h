#pragma once

#include "AnswerChannel.h"
#include "Envelope.h"

#include <optional>

namespace HostKit {

/*! What all copies of a received launch share. The application's thread. */
struct ReceivedLaunchPrivate {
    explicit ReceivedLaunchPrivate(const LaunchMessage& received);
    ~ReceivedLaunchPrivate();
    Q_DISABLE_COPY_MOVE(ReceivedLaunchPrivate)

    const LaunchMessage message;
    std::optional<AnswerChannel> channel; // of a launch that waits
};

} // namespace HostKit
