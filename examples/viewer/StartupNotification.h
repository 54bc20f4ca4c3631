#pragma once

#include <QtCore/QByteArray>

/*!
    Returns the id by which a desktop's launcher waits for this process, or nothing. Qt removes it
    from the environment, so ask before building the application object.
*/
QByteArray startupId();

/*!
    Tells the launcher that waits for \a id that no window will come of it, so that it ends its busy
    cursor. For a launch that handed over; with a window, Qt does it. Any desktop, or none.
*/
void endStartup(const QByteArray& id);
