#include "Activation.h"

#include <Core/Settings.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QVariant>

#include <algorithm>

namespace HostKit {

namespace {

constexpr int longestToken = 1024; // Qt ends a process for one that fills a message to its server
constexpr qint64 longestAge = 60; // s, either way; servers forget them sooner
constexpr auto variable = "XDG_ACTIVATION_TOKEN";

QString group()
{
    return QStringLiteral("SingleInstance");
}

QString key()
{
    return QStringLiteral("ActivationToken");
}

qint64 now()
{
    return QDateTime::currentSecsSinceEpoch();
}

bool isSound(const QByteArray& token)
{
    return !token.isEmpty() && token.size() <= longestToken
        && std::all_of(token.begin(), token.end(), [](char c) { return c > ' ' && c < '\x7F'; });
}

QString present()
{
    return Core::Settings::getInstance()->getValue(group(), key(), QVariant()).toString();
}

/* Returns the token in what stands in the settings, if it is new enough. */
QByteArray freshToken(const QString& setting)
{
    const QByteArray text = setting.toUtf8();
    const auto blank = text.indexOf(' ');
    bool isNumber = false;
    const qint64 time = text.left(blank).toLongLong(&isNumber);
    const QByteArray token = blank < 0 ? QByteArray() : text.mid(blank + 1);
    const bool isFresh = isNumber && time >= now() - longestAge && time <= now() + longestAge;
    return isFresh && isSound(token) ? token : QByteArray();
}

} // namespace

QByteArray ownActivationToken()
{
    const QByteArray token = qgetenv(variable);
    return token.isEmpty() ? qgetenv("DESKTOP_STARTUP_ID") : token;
}

void leaveActivationToken(const QByteArray& token)
{
    if (isSound(token))
        Core::Settings::getInstance()->setValue(
            group(), key(), QString::number(now()) + QLatin1Char(' ') + QString::fromLatin1(token),
            true);
}

void ReceivedActivation::noteWhatIsThere()
{
    seen = present();
}

void ReceivedActivation::takeOver()
{
    const auto platform = QCoreApplication::instance()->property("platformName").toString();
    if (!platform.startsWith(QLatin1String("wayland")))
        return;
    const QString setting = present();
    const QByteArray token = setting == seen ? QByteArray() : freshToken(setting);
    seen = setting;
    if (!token.isEmpty()) // not removed behind the signal: a slot may be queued, and Qt removes it
        qputenv(variable, token);
}

} // namespace HostKit
