#pragma once

#include <QtCore/QtGlobal>

namespace SingleInstance {

/*
 * Two values in the host's settings, by which the processes of one application find their master.
 * Nothing is locked or cached: each call is one call to the host's store. Any thread.
 */

/*! Returns the port of the master that claimed the slot last, or 0 if none holds it. */
quint16 readMasterPort();

/*! Claims the slot for \a port, or gives it back with 0. */
void writeMasterPort(quint16 port);

/*! Returns the id of the process that became master last, or 0. It is never cleared. */
quint32 readMasterPid();

void writeMasterPid(quint32 pid);

} // namespace SingleInstance
