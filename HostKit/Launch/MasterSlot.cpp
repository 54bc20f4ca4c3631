#include "MasterSlot.h"

#include <Core/Settings.h>

#include <QtCore/QCoreApplication>

namespace HostKit {

namespace {

const QString group = QStringLiteral("SingleInstance");
const QString portKey = QStringLiteral("MasterPort");
const QString pidKey = QStringLiteral("MasterPid");

uint setting(const QString& key)
{
    return Core::Settings::getInstance()->getValue(group, key, QVariant(0)).toUInt();
}

} // namespace

quint16 ownPort()
{
    const bool isOurs = setting(pidKey) == static_cast<uint>(QCoreApplication::applicationPid());
    return isOurs ? static_cast<quint16>(setting(portKey)) : quint16(0);
}

bool clearPort()
{
    Core::Settings::getInstance()->setValue(group, portKey, QVariant(0u), true);
    return setting(portKey) == 0;
}

} // namespace HostKit
