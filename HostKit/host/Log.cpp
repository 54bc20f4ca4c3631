#include <HostKit/Log.h>

#include <TrvUtilities/Logging.h>

#include <atomic>
#include <memory>

/* The threshold and the sink of HostKit's log. */

namespace HostKit {

namespace {

using HostSink = std::function<void(torvane::LogLevel, const std::wstring&)>;

std::atomic<LogLevel> threshold = LogLevel::Warning;

HostSink& currentSink()
{
    // Never destroyed: the server thread may write a line after main() has returned.
    static HostSink* const sink = std::make_unique<HostSink>().release();
    return *sink;
}

} // namespace

void setLogLevel(LogLevel level)
{
    threshold = level;
}

void setLogSink(const LogSink& sink)
{
    currentSink() = nullptr;
    if (sink) {
        currentSink() = [sink](torvane::LogLevel level, const std::wstring& text) {
            sink(static_cast<LogLevel>(level), QString::fromStdWString(text));
        };
    }
}

} // namespace HostKit

namespace torvane {

LogLevel GetLoggerLevel()
{
    return static_cast<LogLevel>(HostKit::threshold.load());
}

const std::function<void(LogLevel, const std::wstring&)>& GetLoggerDelegate()
{
    return HostKit::currentSink();
}

} // namespace torvane
