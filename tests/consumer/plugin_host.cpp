#include <HostKit/InstanceSession.h>

#include <QtCore/QCoreApplication>

#include <cstdio>

#include <dlfcn.h>

#ifdef OWN_START
/* Nothing in the library calls it in place of its own. */
SingleInstanceState startSingleInstance()
{
    std::puts("called by the library");
    return SingleInstanceStateFailed;
}
#endif

/* Loads the plug-in, first so that nobody sees its symbols, then so that all do. */
int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    const HostKit::InstanceSession session;
    for (const int visibility : {RTLD_LOCAL, RTLD_GLOBAL}) {
        void* const plugin = ::dlopen(argv[1], RTLD_NOW | visibility);
        if (!plugin) {
            std::puts(::dlerror());
            return 1;
        }
        const auto stateInPlugin = reinterpret_cast<int (*)()>(::dlsym(plugin, "stateInPlugin"));
        std::printf("state %d, in the plug-in %d\n", session.state(), stateInPlugin());
    }
    return 0;
}
