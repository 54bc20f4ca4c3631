#pragma once

#include <QtCore/QtGlobal>

namespace HostKit {

/*!
    Returns whether a process of this user listens on \a port and would accept a hand-off now, by
    IPv6 or else by IPv4. (Root accepts the listener of any user.)

    Asks the kernel, which takes some microseconds. If the listener's queue is full, asks again for
    up to two seconds. If the kernel does not answer, tries to connect for as long; then it is
    unknown whose listener it is. Any thread.
*/
bool isReachable(quint16 port);

} // namespace HostKit
