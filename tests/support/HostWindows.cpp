#include <Core/Settings.h>

#include <QtCore/QSettings>

#include <memory>

/*
 * A host for Windows. Its settings are in the user's registry, under a key that the environment
 * names: other processes read at once what one has written. All other functions are HostKit's.
 */
namespace Core {

namespace {

/* A new one for each call: calls come from more than one thread. */
std::unique_ptr<QSettings> storeOf(const QString& group)
{
    auto store =
        std::make_unique<QSettings>(qEnvironmentVariable("TEST_REGISTRY"), QSettings::NativeFormat);
    store->beginGroup(group);
    return store;
}

} // namespace

Settings* Settings::getInstance()
{
    static Settings settings;
    return &settings;
}

QVariant Settings::getValue(const QString& group, const QString& key,
                            const QVariant& defaultValue) const
{
    return storeOf(group)->value(key, defaultValue);
}

void Settings::setValue(const QString& group, const QString& key, const QVariant& value,
                        bool /*flag*/)
{
    storeOf(group)->setValue(key, value);
}

} // namespace Core
