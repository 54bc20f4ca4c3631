# The tests on Windows: those of the library itself, and real processes.
include(GenerateExportHeader)
generate_export_header(SingleInstanceScriptedHost BASE_NAME HOSTKIT
    EXPORT_FILE_NAME "${PROJECT_BINARY_DIR}/HostKit/include/HostKit/export.h")

# What a DLL imports nothing takes the place of. So the scripted desktop has other names, and these
# are declared as what is defined here.
singleinstance_add_modules(SingleInstanceDesktopModules)
target_compile_definitions(SingleInstanceDesktopModules PUBLIC _KERNEL32_ _USER32_)
foreach(name IN ITEMS GetCurrentProcessId GetCurrentThreadId GetThreadDesktop EnumDesktopWindows
        GetWindowThreadProcessId SetForegroundWindow)
    target_compile_definitions(SingleInstanceDesktopModules PUBLIC ${name}=scripted${name})
endforeach()
add_qt_test(tst_controller TIMEOUT 120
    LIBRARIES SingleInstanceDesktopModules SingleInstanceScriptedHost ws2_32)
target_sources(SingleInstance_tst_controller PRIVATE support/System.h support/SystemWindows.cpp
    "${PROJECT_SOURCE_DIR}/SingleInstance/platform/FileDescriptorsWindows.cpp")
