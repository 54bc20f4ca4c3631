#pragma once

#include "Envelope.h"

namespace HostKit {

/*!
    Hands \a message over to the master that the settings name, in as many lists as it takes. Returns
    whether the operating system of that process has all of them.

    A master joins the lists of a launch, so that it receives all of them as one launch or nothing.
    Blocks for as long as the library's sender does, and for two seconds before each list if the
    master's queue is full. Any thread; needs no application object and no event loop.
*/
bool handOff(const LaunchMessage& message);

/*!
    Hands the single \a list over to whoever listens on \a port. Returns whether the operating system
    of that process has it. Blocks as handOff() does. Any thread.
*/
bool sendList(const QStringList& list, quint16 port);

} // namespace HostKit
