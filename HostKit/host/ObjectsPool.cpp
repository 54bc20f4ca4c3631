#include <Core/ObjectsPool.h>

#include <QtCore/QHash>
#include <QtCore/QObject>

#include <memory>
#include <mutex>

/* HostKit's registry of objects. */

namespace {

struct Registry {
    std::mutex mutex;
    QHash<QString, Core::ObjectsPool::Entry> entries;
};

Registry& registry()
{
    // Never destroyed: registered objects may live longer than the static objects of this library.
    static Registry* const only = std::make_unique<Registry>().release();
    return *only;
}

void forget(const QString& name, const QObject* object)
{
    const std::lock_guard<std::mutex> lock(registry().mutex);
    const auto entry = registry().entries.constFind(name);
    if (entry != registry().entries.constEnd() && entry->second == object)
        registry().entries.erase(entry);
}

} // namespace

namespace Core {

ObjectsPool& ObjectsPool::getInstance()
{
    static ObjectsPool pool;
    return pool;
}

ObjectsPool::Entry ObjectsPool::find(const QString& name, bool /*flag*/) const
{
    const std::lock_guard<std::mutex> lock(registry().mutex);
    return registry().entries.value(name);
}

bool ObjectsPool::add(const Entry& entry, const QString& name, bool /*flag*/)
{
    {
        const std::lock_guard<std::mutex> lock(registry().mutex);
        if (registry().entries.contains(name))
            return false;
        registry().entries.insert(name, entry);
    }
    if (QObject* const object = entry.second)
        QObject::connect(object, &QObject::destroyed, [name, object] { forget(name, object); });
    return true;
}

ObjectsPool::Entry ObjectsPool::take(const QString& name, bool /*flag*/)
{
    const std::lock_guard<std::mutex> lock(registry().mutex);
    return registry().entries.take(name);
}

} // namespace Core
