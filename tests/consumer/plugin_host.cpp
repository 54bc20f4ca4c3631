#include <HostKit/InstanceSession.h>

#include <QtCore/QCoreApplication>

#include <cstdio>

#include <dlfcn.h>

#ifdef OWN_START
/* The library must not call this instead of its own function. */
SingleInstanceState startSingleInstance()
{
    std::puts("called by the library");
    return SingleInstanceStateFailed;
}
#endif

/* Loads the plug-in twice: first with hidden symbols, then with visible ones. */
int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    const HostKit::InstanceSession session;
    for (const int visibility : {RTLD_LOCAL, RTLD_GLOBAL}) {
        void* const plugin = ::dlopen(argv[1], RTLD_NOW | visibility);
        const auto stateInPlugin = reinterpret_cast<int (*)()>(::dlsym(plugin, "stateInPlugin"));
        std::printf("state %d, in the plug-in %d\n", session.state(), stateInPlugin());
    }
    return 0;
}
