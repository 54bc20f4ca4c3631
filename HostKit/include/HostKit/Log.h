#pragma once

#include <HostKit/export.h>

#include <QtCore/QString>

#include <functional>

namespace HostKit {

/*! The level of a line of the log. */
enum class LogLevel {
    Trace = 0,
    Debug = 1, //!< what is tried, and how large it is
    Info = 2, //!< what is done
    Warning = 3, //!< what failed
    Error = 4,
    Fatal = 5,
    Off = 6 //!< as a threshold: no line passes
};

/*! Takes a line, without a line break. */
using LogSink = std::function<void(LogLevel level, const QString& text)>;

/*!
    Sets the threshold: lines below \a level are not written. It is Warning at first. Any thread.
*/
HOSTKIT_EXPORT void setLogLevel(LogLevel level);

/*!
    Sets the sink; an empty one, as at first, discards all lines.

    Call it while there is no session: the master's thread may be calling the old one. The sink is
    called from any thread.
*/
HOSTKIT_EXPORT void setLogSink(const LogSink& sink);

/*!
    A ready sink: writes each line to standard error behind the local time and the level.

    Characters that control or format text are escaped, since lines quote what other processes sent.
    Any thread. It never waits: a line that standard error does not take at once is dropped, and the
    next one that gets through says how many were. Standard error has to be open: where it was
    closed, its number soon belongs to a file or a connection, so open /dev/null first thing then.
*/
HOSTKIT_EXPORT void writeToStandardError(LogLevel level, const QString& text);

/*!
    Has Qt's own messages, qWarning() and the like, go to the log, or no longer. HostKit's warnings
    are among them. The application's thread.
*/
HOSTKIT_EXPORT void catchQtMessages(bool on);

} // namespace HostKit
