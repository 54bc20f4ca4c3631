#pragma once

#include <HostKit/export.h>

#include <QtCore/QString>

#include <functional>

namespace HostKit {

/*! The level of a line of the log. */
enum class LogLevel {
    Trace = 0,
    Debug = 1, //!< attempts, and sizes
    Info = 2, //!< what happens
    Warning = 3, //!< what failed
    Error = 4,
    Fatal = 5,
    Off = 6 //!< as a threshold: no line passes
};

/*! Takes a line, without a line break. */
using LogSink = std::function<void(LogLevel level, const QString& text)>;

/*!
    Sets the threshold: lines below \a level are not written. By default it is Warning. Any thread.
*/
HOSTKIT_EXPORT void setLogLevel(LogLevel level);

/*!
    Sets the sink. An empty one, which is the default, discards all lines.

    Call it while there is no session: the master's server thread may be calling the old sink. The
    sink may be called in any thread.
*/
HOSTKIT_EXPORT void setLogSink(const LogSink& sink);

/*!
    A ready-made sink: writes each line to standard error, with the local time and the level in
    front.

    Lines quote what other processes sent. So characters that control or format text are escaped.
    Any thread. It never waits: it drops a line that standard error does not take at once, and the
    next line that gets through says how many were dropped.

    Standard error must be open. If the application may be started with it closed, first open
    /dev/null as descriptor 2. Otherwise a file or a connection gets that number, and the log is
    written into it.
*/
HOSTKIT_EXPORT void writeToStandardError(LogLevel level, const QString& text);

/*!
    If \a on is true, Qt's own messages, such as those of qWarning(), go to the log. Otherwise they
    go where they went before. HostKit's own warnings are such messages; the lines of the hand-off
    are not. The application's thread.
*/
HOSTKIT_EXPORT void catchQtMessages(bool on);

} // namespace HostKit
