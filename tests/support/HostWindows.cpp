#include <Core/Settings.h>

#include <QtCore/QSettings>

/*
 * A host of its own for Windows: its settings are in the user's registry, which keeps nothing back,
 * under a key that the environment names; all else is HostKit's.
 */
namespace Core {

namespace {

QString pathOf(const QString& group, const QString& key)
{
    return group + QLatin1Char('/') + key;
}

/* One for each call, since calls come from more than one thread. */
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
