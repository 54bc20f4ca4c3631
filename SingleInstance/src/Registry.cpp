#include "Registry.h"

#include "SingleInstanceController.h"

#include <Core/ObjectsPool.h>

namespace SingleInstance {

namespace {

QString registryKey()
{
    return QString::fromLatin1(SingleInstanceController::staticMetaObject.className());
}

SingleInstanceController* controllerOf(const Core::ObjectsPool::Entry& entry)
{
    return static_cast<SingleInstanceController*>(entry.first);
}

} // namespace

SingleInstanceController* findController()
{
    return controllerOf(Core::ObjectsPool::getInstance().find(registryKey(), false));
}

void registerController(SingleInstanceController& controller)
{
    Core::ObjectsPool::getInstance().add({&controller, &controller}, registryKey(), true);
}

SingleInstanceController* takeController()
{
    return controllerOf(Core::ObjectsPool::getInstance().take(registryKey(), false));
}

} // namespace SingleInstance
