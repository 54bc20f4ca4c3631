#pragma once

#include <QtCore/QDeadlineTimer>
#include <QtCore/QList>
#include <QtCore/QStringList>

#include <chrono>

namespace HostKit {

/*!
    Hands \a list over to \a port as a launch does, by IPv6 or else by IPv4. Returns whether the
    operating system has it. Blocks until \a deadline at most, and for a tenth of a second until it
    was read, so that the next one comes behind it. Any thread; no event loop is needed.
*/
bool handOver(const QStringList& list, quint16 port, const QDeadlineTimer& deadline);

/*!
    The same for all \a lists, one after the other. Returns how many were, in \a patience. Once one
    was not read in time, the others come behind it in whatever order the master reads them.
*/
int handOverAll(const QList<QStringList>& lists, quint16 port, std::chrono::milliseconds patience);

} // namespace HostKit
