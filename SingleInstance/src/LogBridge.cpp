#include "LogBridge.h"

#include <Logger/Logger.h>

#include <cstdlib>

namespace SingleInstance {

void fatalError(const char* message)
{
    logLine(torvane::LogLevel::Fatal, message);
    Logger::setQtDebugCatchingOn(false);
    std::abort();
}

namespace LogBridge {

void append(std::wostringstream& line, const char* text)
{
    line << text;
}

void append(std::wostringstream& line, const QString& text)
{
    line << text.toStdWString();
}

void append(std::wostringstream& line, int number)
{
    line << number;
}

void append(std::wostringstream& line, quint16 number)
{
    line << number;
}

} // namespace LogBridge

} // namespace SingleInstance
