#include <HostKit/InstanceSession.h>

/* Returns the state of a second session in the program. */
extern "C" __attribute__((visibility("default"))) int stateInPlugin()
{
    const HostKit::InstanceSession session;
    return session.state();
}
