#pragma once

#include "Envelope.h"

namespace HostKit {

/*!
    Hands \a message over to the master that the settings name, in as many lists as necessary.
    Returns whether all connections were made. A write that fails is not noticed.

    The master joins the lists: it receives the whole launch or nothing. Blocks as long as the
    library's sender does, and for two seconds before each list if the master's queue is full. Needs
    no application object and no event loop. Any thread.
*/
bool handOff(const LaunchMessage& message);

/*!
    Hands the single \a list over to the process that listens on \a port. Returns whether the
    connection was made. Blocks as handOff() does. Any thread.
*/
bool sendList(const QStringList& list, quint16 port);

} // namespace HostKit
