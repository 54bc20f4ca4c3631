#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QStringList>

#include <memory>

namespace HostKit {

class AnswerChannel;

/*!
    One launch, as it travels from process to process. Some local process wrote it: nothing in it
    can be trusted.
*/
struct LaunchMessage {
    QByteArray id; // 32 hexadecimal digits; empty for a list without an envelope
    QString workingFolder; // absolute, or empty
    QByteArray activationToken;
    bool isWaiting = false; // for an answer
    QStringList arguments;
    std::shared_ptr<AnswerChannel> channel; // to the launch, in a process that received it
};

} // namespace HostKit
