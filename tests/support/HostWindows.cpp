#include <Core/Settings.h>

#include <QtCore/QSettings>

/*
 * A host for Windows. Its settings are in the user's registry, under a key that the environment
 * names: other processes read at once what one has written. All other functions are HostKit's.
 */
namespace Core {

namespace {

QString pathOf(const QString& group, const QString& key)
{
    return group + QLatin1Char('/') + key;
}

/* A new one for each call: calls come from more than one thread. */
struct Store : QSettings {
    Store()
        : QSettings(qEnvironmentVariable("TEST_REGISTRY"), QSettings::NativeFormat)
    {
    }
};

} // namespace

Settings* Settings::getInstance()
{
    static Settings settings;
    return &settings;
}

QVariant Settings::getValue(const QString& group, const QString& key,
                            const QVariant& defaultValue) const
{
    return Store().value(pathOf(group, key), defaultValue);
}

void Settings::setValue(const QString& group, const QString& key, const QVariant& value,
                        bool /*flag*/)
{
    Store().setValue(pathOf(group, key), value);
}

} // namespace Core
