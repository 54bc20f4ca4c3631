#pragma once

#include <QtCore/QtGlobal>

namespace HostKit {

/*
 * What the library keeps in the settings for the processes of an application to find their master,
 * as far as the session has to know. Any thread.
 */

/*! Returns the port in the settings as long as it was this process that recorded it, or 0. */
Q_DECL_HIDDEN quint16 ownPort();

/*! Clears the port. Returns whether the settings name none now. */
Q_DECL_HIDDEN bool clearPort();

} // namespace HostKit
