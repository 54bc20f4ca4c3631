#include "ScriptedHost.h"

#include <Core/Settings.h>

#include <mutex>
#include <utility>

namespace ScriptedHost {

std::shared_ptr<State> state()
{
    static std::recursive_mutex mutex;
    static State state;
    mutex.lock();
    return {&state, [](State*) { mutex.unlock(); }};
}

void reset()
{
    static const QString prefix = QStringLiteral("SingleInstanceController: ");
    *state() = {};
    HostKit::setLogLevel(HostKit::LogLevel::Trace);
    HostKit::setLogSink([](HostKit::LogLevel level, const QString& text) {
        state()->log += QString::number(static_cast<int>(level)) + QLatin1Char(' ')
            + (text.startsWith(prefix) ? text.mid(prefix.size())
                                       : QLatin1String("NO PREFIX ") + text);
    });
}

QStringList takeLog()
{
    return std::exchange(state()->log, {});
}

} // namespace ScriptedHost

namespace Core {

using ScriptedHost::state;

Settings* Settings::getInstance()
{
    static Settings settings;
    return &settings;
}

QVariant Settings::getValue(const QString& group, const QString& key,
                            const QVariant& defaultValue) const
{
    if (group != QLatin1String("SingleInstance"))
        qFatal("read of another group");
    const auto type = key == QLatin1String("MasterPort") ? QMetaType::Int : QMetaType::UnknownType;
    if (defaultValue.userType() != type)
        qFatal("read with another default");
    const auto host = state();
    if (key == QLatin1String("MasterPort") && !host->portReads.isEmpty())
        return host->portReads.takeFirst();
    return host->settings.value(key, defaultValue);
}

void Settings::setValue(const QString& group, const QString& key, const QVariant& value, bool flag)
{
    if (group != QLatin1String("SingleInstance") || value.userType() != QMetaType::UInt || !flag)
        qFatal("write of another group, type or flag");
    state()->settings[key] = value;
}

} // namespace Core
