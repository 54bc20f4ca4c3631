#include <HostKit/Log.h>

#include <Logger/Logger.h>

#include <TrvUtilities/Logging.h>

#include <QtCore/QString>

#include <utility>

/* Sends Qt's own messages to the log. */

namespace {

using torvane::LogLevel;

LogLevel levelOf(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return LogLevel::Debug;
    case QtInfoMsg:
        return LogLevel::Info;
    case QtWarningMsg:
        return LogLevel::Warning;
    case QtCriticalMsg:
        return LogLevel::Error;
    case QtFatalMsg:
        break;
    }
    return LogLevel::Fatal;
}

void passOn(QtMsgType type, const QMessageLogContext& /*context*/, const QString& message)
{
    const LogLevel level = levelOf(type);
    if (torvane::GetLoggerLevel() > level)
        return;
    if (const auto& sink = torvane::GetLoggerDelegate())
        sink(level, message.toStdWString());
}

} // namespace

/* Messages that are caught go to the log sink, all others to the handler that was there before. */
void Logger::setQtDebugCatchingOn(bool on)
{
    static QtMessageHandler before = nullptr;
    static bool isOn = false;
    if (std::exchange(isOn, on) == on)
        return;
    if (on)
        before = qInstallMessageHandler(passOn);
    else
        qInstallMessageHandler(std::exchange(before, nullptr));
}

void HostKit::catchQtMessages(bool on)
{
    Logger::setQtDebugCatchingOn(on);
}
