#include <HostKit/InstanceSession.h>

/* Returns the state of a session beside that of the program. */
extern "C" __attribute__((visibility("default"))) int stateInPlugin()
{
    const HostKit::InstanceSession session;
    return session.state();
}
