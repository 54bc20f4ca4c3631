#pragma once

#include "AnswerChannel.h"
#include "Envelope.h"

#include <memory>

namespace HostKit {

/*! What all copies of a received launch share. The application's thread. */
struct ReceivedLaunchPrivate {
    /*! With the \a channel of a launch that waits, or null. */
    ReceivedLaunchPrivate(const LaunchMessage& received, std::unique_ptr<AnswerChannel> channel);
    ~ReceivedLaunchPrivate();
    Q_DISABLE_COPY_MOVE(ReceivedLaunchPrivate)

    const LaunchMessage message;
    const std::unique_ptr<AnswerChannel> channel;
};

} // namespace HostKit
