#include <HostKit/ReceivedLaunch.h>

#include "AnswerChannel.h"
#include "ReceivedLaunchPrivate.h"

#include <utility>

namespace HostKit {

ReceivedLaunchPrivate::ReceivedLaunchPrivate(LaunchMessage received)
    : message(std::move(received))
{
}

ReceivedLaunchPrivate::~ReceivedLaunchPrivate()
{
    answer(0, {});
}

void ReceivedLaunchPrivate::answer(int exitCode, const QString& text) const
{
    if (message.channel)
        message.channel->send({false, exitCode, text});
}

ReceivedLaunch::ReceivedLaunch()
    : d(std::make_shared<ReceivedLaunchPrivate>(LaunchMessage()))
{
}

ReceivedLaunch::ReceivedLaunch(std::shared_ptr<ReceivedLaunchPrivate> received)
    : d(std::move(received))
{
}

ReceivedLaunch::ReceivedLaunch(const ReceivedLaunch& other) = default;
ReceivedLaunch& ReceivedLaunch::operator=(const ReceivedLaunch& other) = default;
ReceivedLaunch::~ReceivedLaunch() = default;

QStringList ReceivedLaunch::arguments() const
{
    return d->message.arguments;
}

QString ReceivedLaunch::workingFolder() const
{
    return d->message.workingFolder;
}

bool ReceivedLaunch::isWaiting() const
{
    return d->message.channel && d->message.channel->isOpen();
}

void ReceivedLaunch::answer(int exitCode, const QString& text) const
{
    d->answer(exitCode, text);
}

} // namespace HostKit
