#pragma once

#include <functional>
#include <string>

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility push(default) // the library could not find a hidden one
#endif

/*! The host's log: its threshold and its sink. */
namespace torvane {

/*! The level of a log line. The library writes Debug, Info, Warning and Fatal. */
enum class LogLevel : int {
    Trace = 0,
    Debug = 1,
    Info = 2,
    Warning = 3,
    Error = 4,
    Fatal = 5,
    Off = 6 //!< as a threshold: no line passes
};

/*! Returns the threshold: lines below it are not written. Called from any thread, for each line. */
LogLevel GetLoggerLevel();

/*!
    Returns the sink that takes each line, without a line break. It may be empty. The library calls
    this function, and the sink itself, from any thread.
*/
const std::function<void(LogLevel, const std::wstring&)>& GetLoggerDelegate();

} // namespace torvane

#ifndef SINGLEINSTANCE_HOST_IS_HIDDEN
#pragma GCC visibility pop
#endif
