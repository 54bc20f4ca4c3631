#include "ScriptedHost.h"

#include <Core/Invokator.h>
#include <Core/ObjectsPool.h>
#include <Core/Settings.h>
#include <Logger/Logger.h>

namespace {

void record(torvane::LogLevel level, const std::wstring& text)
{
    static const QString prefix = QStringLiteral("SingleInstanceController: ");
    const QString line = QString::fromStdWString(text);
    ScriptedHost::state()->log += QString::number(static_cast<int>(level)) + QLatin1Char(' ')
        + (line.startsWith(prefix) ? line.mid(prefix.size()) : QStringLiteral("NO PREFIX ") + line);
}

} // namespace

namespace ScriptedHost {

Access state()
{
    static std::recursive_mutex mutex;
    static State state;
    return {std::unique_lock(mutex), &state};
}

void reset()
{
    *state().state = {};
    state()->sink = record;
}

QStringList takeLog()
{
    return std::exchange(state()->log, {});
}

} // namespace ScriptedHost

using ScriptedHost::state;

torvane::LogLevel torvane::GetLoggerLevel()
{
    return state()->threshold;
}

const std::function<void(torvane::LogLevel, const std::wstring&)>& torvane::GetLoggerDelegate()
{
    return state()->sink;
}

void Logger::setQtDebugCatchingOn(bool /*on*/) { }

namespace Core {

void Invokator::invokeInCurrentThread(std::function<void()> function, QObject* context)
{
    if (state()->holdsInvoked)
        state()->invoked.append(function);
    else
        QMetaObject::invokeMethod(context, std::move(function), Qt::QueuedConnection);
}

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

ObjectsPool& ObjectsPool::getInstance()
{
    static ObjectsPool pool;
    return pool;
}

ObjectsPool::Entry ObjectsPool::find(const QString& name, bool flag) const
{
    QObject* const object = flag ? nullptr : state()->registry.value(name).data();
    return {object, object};
}

bool ObjectsPool::add(const Entry& entry, const QString& name, bool flag)
{
    if (flag && entry.first == entry.second)
        state()->registry[name] = entry.second;
    return false; // nobody looks at it
}

ObjectsPool::Entry ObjectsPool::take(const QString& name, bool flag)
{
    const Entry entry = find(name, flag);
    state()->registry.remove(name);
    return entry;
}

} // namespace Core
