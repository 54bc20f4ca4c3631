#include "ScriptedHost.h"

#include <Core/Invokator.h>
#include <Core/ObjectsPool.h>
#include <Core/Settings.h>
#include <Logger/Logger.h>

#include <QtCore/QMutex>
#include <QtCore/QPointer>

#include <cstdio>

namespace {

using Sink = std::function<void(torvane::LogLevel, const std::wstring&)>;

struct Entry {
    void* pointer = nullptr;
    QPointer<QObject> object;
};

struct State {
    torvane::LogLevel threshold = torvane::LogLevel::Trace;
    Sink sink;
    int sinkRequests = 0;
    QStringList log;
    QVariantList portReads;
    QHash<QString, QVariant> settings;
    QHash<QString, Entry> registry;
    bool holdsInvoked = false;
    QList<QPair<QPointer<QObject>, std::function<void()>>> invoked;
};

QRecursiveMutex mutex;
State state;

void record(torvane::LogLevel level, const std::wstring& text)
{
    static const QString prefix = QStringLiteral("SingleInstanceController: ");
    const QString line = QString::fromStdWString(text);
    const QMutexLocker lock(&mutex);
    state.log += QString::number(static_cast<int>(level)) + QLatin1Char(' ')
        + (line.startsWith(prefix) ? line.mid(prefix.size()) : QStringLiteral("NO PREFIX ") + line);
}

} // namespace

namespace ScriptedHost {

void reset()
{
    const QMutexLocker lock(&mutex);
    state = State();
    state.sink = record;
}

void setThreshold(torvane::LogLevel level)
{
    const QMutexLocker lock(&mutex);
    state.threshold = level;
}

void setSink(Sink sink)
{
    const QMutexLocker lock(&mutex);
    state.sink = std::move(sink);
}

QStringList takeLog()
{
    const QMutexLocker lock(&mutex);
    return std::exchange(state.log, {});
}

int sinkRequests()
{
    const QMutexLocker lock(&mutex);
    return state.sinkRequests;
}

void scriptPortReads(const QVariantList& ports)
{
    const QMutexLocker lock(&mutex);
    state.portReads = ports;
}

QVariant setting(const QString& key)
{
    const QMutexLocker lock(&mutex);
    return state.settings.value(key);
}

void set(const QString& key, const QVariant& value)
{
    const QMutexLocker lock(&mutex);
    state.settings[key] = value;
}

void holdInvoked()
{
    const QMutexLocker lock(&mutex);
    state.holdsInvoked = true;
}

int runInvoked()
{
    const QMutexLocker lock(&mutex);
    const auto held = std::exchange(state.invoked, {});
    for (const auto& [context, function] : held) {
        if (context)
            function();
    }
    return held.size();
}

} // namespace ScriptedHost

namespace torvane {

LogLevel GetLoggerLevel()
{
    const QMutexLocker lock(&mutex);
    return state.threshold;
}

const Sink& GetLoggerDelegate()
{
    const QMutexLocker lock(&mutex);
    ++state.sinkRequests;
    return state.sink;
}

} // namespace torvane

namespace Logger {

void setQtDebugCatchingOn(bool on)
{
    std::printf("catching %s\n", on ? "on" : "off");
    std::fflush(stdout);
}

} // namespace Logger

namespace Core {

void Invokator::invokeInCurrentThread(std::function<void()> function, QObject* context)
{
    const QMutexLocker lock(&mutex);
    if (state.holdsInvoked)
        state.invoked.append({context, function});
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
    const QMutexLocker lock(&mutex);
    if (group != QLatin1String("SingleInstance"))
        qFatal("read of another group");
    if (key == QLatin1String("MasterPort") && !state.portReads.isEmpty())
        return state.portReads.takeFirst();
    return state.settings.value(key, defaultValue);
}

void Settings::setValue(const QString& group, const QString& key, const QVariant& value, bool flag)
{
    const QMutexLocker lock(&mutex);
    if (group != QLatin1String("SingleInstance") || value.userType() != QMetaType::UInt || !flag)
        qFatal("write of another group, type or flag");
    state.settings[key] = value;
}

ObjectsPool& ObjectsPool::getInstance()
{
    static ObjectsPool pool;
    return pool;
}

ObjectsPool::Entry ObjectsPool::find(const QString& name, bool flag) const
{
    const QMutexLocker lock(&mutex);
    const auto entry = state.registry.value(name);
    return flag || !entry.object ? Entry() : Entry(entry.pointer, entry.object.data());
}

bool ObjectsPool::add(const Entry& entry, const QString& name, bool flag)
{
    const QMutexLocker lock(&mutex);
    if (flag)
        state.registry[name] = {entry.first, entry.second};
    return false; // nobody looks at it
}

ObjectsPool::Entry ObjectsPool::take(const QString& name, bool flag)
{
    const Entry entry = find(name, flag);
    const QMutexLocker lock(&mutex);
    state.registry.remove(name);
    return entry;
}

} // namespace Core
