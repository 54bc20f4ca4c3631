#include "StartupNotification.h"

namespace HostKit {

void endStartup(const QByteArray& /*id*/) { }

} // namespace HostKit
