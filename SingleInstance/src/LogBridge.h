#pragma once

#include "Termination.h"

#include <TrvUtilities/Logging.h>

#include <QtCore/QString>

#include <functional>
#include <sstream>
#include <type_traits>

namespace SingleInstance {

using LogSink = std::function<void(torvane::LogLevel, const std::wstring&)>;

/*!
    Ends the process: writes \a message at the level Fatal, stops the host's logger from catching
    Qt's messages, aborts. It guards preconditions that the callers in this library always keep.
*/
[[noreturn]] void fatalError(const char* message);

namespace LogBridge {

void append(std::wostringstream& line, const char* text);
void append(std::wostringstream& line, const QString& text);
void append(std::wostringstream& line, int number);
void append(std::wostringstream& line, quint16 number);

template <typename Piece> decltype(auto) valueOf(const Piece& piece)
{
    if constexpr (std::is_invocable_v<const Piece&>)
        return piece();
    else
        return (piece);
}

template <typename... Values>
void writeLine(const LogSink& sink, torvane::LogLevel level, const Values&... values)
{
    std::wostringstream line;
    append(line, "SingleInstanceController: ");
    (append(line, values), ...);
    sink(level, line.str());
}

} // namespace LogBridge

/*!
    Writes one line of \a pieces at \a level to the host's sink.

    A piece is a literal, a QString, an int, a quint16, or a callable that returns one of these. A
    callable is called only if the line is written: a filtered line costs one call to
    torvane::GetLoggerLevel(). Each line asks for the threshold and the sink, so that the host may
    change them at any time. Takes no lock; call it from any thread. An exception of the sink
    reaches the caller.
*/
template <typename... Pieces> void logLine(torvane::LogLevel level, const Pieces&... pieces)
{
    const HostCall call;
    if (torvane::GetLoggerLevel() > level)
        return;
    if (const LogSink& sink = torvane::GetLoggerDelegate())
        LogBridge::writeLine(sink, level, LogBridge::valueOf(pieces)...);
}

} // namespace SingleInstance
