#include <HostKit/LogSink.h>

#include <QtCore/QDateTime>
#include <QtCore/QString>

#include <array>
#include <atomic>
#include <cstdio>

namespace torvane {

namespace {

using Sink = std::function<void(LogLevel, const std::wstring&)>;

std::atomic<LogLevel> threshold = LogLevel::Warning;

Sink& currentSink()
{
    static Sink sink;
    return sink;
}

const char* nameOf(LogLevel level)
{
    static constexpr std::array names = {"trace", "debug", "info", "warning", "error", "fatal"};
    const auto index = static_cast<size_t>(level);
    return index < names.size() ? names[index] : "?";
}

QString withoutControls(const QString& text)
{
    QString clean;
    for (const QChar c : text) {
        const QChar::Category category = c.category();
        if (category == QChar::Other_Control || category == QChar::Other_Format
            || category == QChar::Separator_Line || category == QChar::Separator_Paragraph)
            clean += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            clean += c;
    }
    return clean;
}

} // namespace

LogLevel GetLoggerLevel()
{
    return threshold;
}

const Sink& GetLoggerDelegate()
{
    return currentSink();
}

void SetLoggerLevel(LogLevel level)
{
    threshold = level;
}

void SetLoggerDelegate(Sink delegate)
{
    currentSink() = std::move(delegate);
}

void WriteToStandardError(LogLevel level, const std::wstring& text)
{
    const QString time =
        QDateTime::currentDateTime().toString(QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    const QByteArray line =
        QStringLiteral("%1 %2: %3\n")
            .arg(time, QLatin1String(nameOf(level)), withoutControls(QString::fromStdWString(text)))
            .toUtf8();
    std::fwrite(line.constData(), 1, static_cast<size_t>(line.size()), stderr);
}

} // namespace torvane
