#include <HostKit/ReceivedLaunch.h>

#include "ReceivedLaunchPrivate.h"

#include <utility>

namespace HostKit {

ReceivedLaunchPrivate::ReceivedLaunchPrivate(const LaunchMessage& received,
                                             std::unique_ptr<AnswerChannel> itsChannel)
    : message(received)
    , channel(std::move(itsChannel))
{
}

ReceivedLaunchPrivate::~ReceivedLaunchPrivate()
{
    if (channel)
        channel->send(0, {});
}

ReceivedLaunch::ReceivedLaunch()
    : d(std::make_shared<ReceivedLaunchPrivate>(LaunchMessage(), nullptr))
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
    return d->channel && d->channel->isOpen();
}

void ReceivedLaunch::answer(int exitCode, const QString& text) const
{
    if (d->channel)
        d->channel->send(exitCode, text);
}

} // namespace HostKit
