#pragma once

#include <QtCore/QtGlobal>

class QByteArray;

namespace SingleInstance {

/*!
    Delivers \a body, of 1 to 65,535 bytes, to the master that the settings slot names.

    Returns true if it connected, even if the write failed: nothing is acknowledged. Returns false
    if the slot names no port, or no process accepts on it.

    Any thread. Blocks for 90 s at worst: 30 s each for IPv6, IPv4 and the write. A port without a
    listener refuses at once. Needs no event loop. A body that is empty or too long ends the
    process.
*/
bool sendToMaster(const QByteArray& body);

/*! The same for the process that listens on \a port, whatever the settings slot names. */
bool sendTo(quint16 port, const QByteArray& body);

} // namespace SingleInstance
