#include "HandOff.h"

#include "MasterProbe.h"
#include "MessageFormat.h"
#include "MessageSender.h"
#include "SettingsSlot.h"

#include <algorithm>

namespace HostKit {

bool handOff(const LaunchMessage& message)
{
    LaunchMessage sent = message;
    if (sent.id.isEmpty())
        sent.id = newLaunchId();
    const quint16 port = SingleInstance::readMasterPort();
    const auto chunks = chunksOf(sent);
    return std::all_of(chunks.begin(), chunks.end(),
                       [port](const QStringList& chunk) { return sendList(chunk, port); });
}

bool sendList(const QStringList& list, quint16 port)
{
    // The library's sender alone would wait 30 s for a master whose queue is full.
    return port != 0 && isReachable(port)
        && SingleInstance::sendTo(port, SingleInstance::packArguments(list));
}

} // namespace HostKit
