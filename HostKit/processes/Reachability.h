#pragma once

#include <QtCore/QtGlobal>

namespace HostKit {

/*!
    Returns whether a process of this user would accept what a launch hands over to \a port now, by
    IPv6 or by IPv4. (Whoever is root trusts all users.)

    The kernel is asked, which takes some microseconds and is not noticed by the listener; again and
    again for two seconds at most, if the listener's queue is full. Where it does not answer, a
    connection is tried for as long, of which nobody knows whose it is. Any thread.
*/
bool isReachable(quint16 port);

} // namespace HostKit
