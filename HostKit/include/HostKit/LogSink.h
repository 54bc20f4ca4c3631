#pragma once

#include <TrvUtilities/Logging.h>

namespace torvane {

/*!
    Sets the threshold: lines below \a level are not written. It is Warning at first. Any thread.
*/
void SetLoggerLevel(LogLevel level);

/*!
    Sets the sink; an empty one, as at first, discards all lines.

    Call it before startSingleInstance() or after stopSingleInstance(): in between, the master's
    thread may be calling the old one. The sink is called from any thread.
*/
void SetLoggerDelegate(std::function<void(LogLevel, const std::wstring&)> delegate);

/*!
    A ready sink: writes each line to standard error behind the local time and the level.

    Characters that control or format text are escaped, since lines quote what other processes sent.
    Any thread; each line is one write. Standard error has to be open: where it was closed, its
    number soon belongs to a file or a connection.
*/
void WriteToStandardError(LogLevel level, const std::wstring& text);

} // namespace torvane
