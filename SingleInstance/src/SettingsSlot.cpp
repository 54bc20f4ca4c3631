#include "SettingsSlot.h"

#include "Termination.h"

#include <Core/Settings.h>

namespace SingleInstance {

namespace {

const QString settingsGroup = QStringLiteral("SingleInstance");
const QString masterPidKey = QStringLiteral("MasterPid");
const QString masterPortKey = QStringLiteral("MasterPort");

} // namespace

quint16 readMasterPort()
{
    const HostCall call;
    const QVariant port =
        Core::Settings::getInstance()->getValue(settingsGroup, masterPortKey, QVariant(0));
    return static_cast<quint16>(port.toUInt());
}

void writeMasterPort(quint16 port)
{
    const HostCall call;
    Core::Settings::getInstance()->setValue(settingsGroup, masterPortKey, QVariant(uint(port)),
                                            true);
}

quint32 readMasterPid()
{
    return Core::Settings::getInstance()
        ->getValue(settingsGroup, masterPidKey, QVariant())
        .toUInt();
}

void writeMasterPid(quint32 pid)
{
    Core::Settings::getInstance()->setValue(settingsGroup, masterPidKey, QVariant(uint(pid)), true);
}

} // namespace SingleInstance
