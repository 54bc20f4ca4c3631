#include "ActivationToken.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QVariant>

#include <algorithm>

namespace HostKit {

namespace {

constexpr int maxSize =
    1024; // in Qt 6.4 a longer one may end the process: it does not fit into a Wayland message
constexpr auto variable = "XDG_ACTIVATION_TOKEN";

} // namespace

QByteArray ownActivationToken()
{
    const QByteArray token = qgetenv(variable);
    return token.isEmpty() ? qgetenv("DESKTOP_STARTUP_ID") : token;
}

bool isValidToken(const QByteArray& token)
{
    return !token.isEmpty() && token.size() <= maxSize
        && std::all_of(token.begin(), token.end(), [](char c) { return c > ' ' && c < '\x7F'; });
}

void exportToEnvironment(const QByteArray& token)
{
    const auto platform = QCoreApplication::instance()->property("platformName").toString();
    if (platform.startsWith(QLatin1String("wayland")) && isValidToken(token))
        qputenv(variable, token);
}

void removeFromEnvironment(const QByteArray& token)
{
    if (!token.isEmpty() && qgetenv(variable) == token)
        qunsetenv(variable);
}

} // namespace HostKit
