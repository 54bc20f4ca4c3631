# The tests on Windows: those of the library itself, and real processes. tst_limits is left out: it counts
# descriptors, and replaces functions of the C library.
include(GenerateExportHeader)
generate_export_header(SingleInstanceScriptedHost BASE_NAME HOSTKIT
    EXPORT_FILE_NAME "${PROJECT_BINARY_DIR}/HostKit/include/HostKit/export.h")

# No function can replace one that a DLL imports. So the functions of the scripted desktop have other names
# here, and are declared as defined in this program.
singleinstance_add_modules(SingleInstanceDesktopModules)
target_compile_definitions(SingleInstanceDesktopModules PUBLIC _KERNEL32_ _USER32_)
foreach(name IN ITEMS GetCurrentProcessId GetCurrentThreadId GetThreadDesktop EnumDesktopWindows
        GetWindowThreadProcessId SetForegroundWindow)
    target_compile_definitions(SingleInstanceDesktopModules PUBLIC ${name}=scripted${name})
endforeach()
add_qt_test(tst_controller TIMEOUT 120
    LIBRARIES SingleInstanceDesktopModules SingleInstanceScriptedHost ws2_32)
target_sources(SingleInstance_tst_controller PRIVATE
    "${PROJECT_SOURCE_DIR}/SingleInstance/platform/FileDescriptorsWindows.cpp")

# A DLL must be linked with its host. So this host is a library of its own.
add_library(SingleInstance_windows_host support/HostWindows.cpp
    ../HostKit/host/Invokator.cpp ../HostKit/host/Log.cpp ../HostKit/host/ObjectsPool.cpp
    ../HostKit/host/QtMessages.cpp)
target_compile_definitions(SingleInstance_windows_host PUBLIC HOSTKIT_STATIC_DEFINE)
target_include_directories(SingleInstance_windows_host PRIVATE
    ../HostKit/include "${PROJECT_BINARY_DIR}/HostKit/include")
target_link_libraries(SingleInstance_windows_host
    PUBLIC SingleInstanceHostInterface PRIVATE SingleInstanceBuildFlags)
add_qt_test(tst_windows TIMEOUT 120
    LIBRARIES SingleInstance::SingleInstance SingleInstance_windows_host)

if(BUILD_SHARED_LIBS)
    add_test(NAME exports_SingleInstance COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/exports.sh"
        $<TARGET_FILE:SingleInstance::SingleInstance>
        "${CMAKE_CURRENT_SOURCE_DIR}/exports-SingleInstance.txt")
endif()
