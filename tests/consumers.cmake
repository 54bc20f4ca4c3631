# Applications that use the installed library, or the sources as a part of their own. Each is built,
# installed, and started from its prefix.
set(cache "${CMAKE_CURRENT_BINARY_DIR}/ccache")
if(DEFINED ENV{CCACHE_DIR}) # one that outlives this build
    set(cache "$ENV{CCACHE_DIR}")
endif()
set(CCACHE "CCACHE_DIR=${cache};CCACHE_BASEDIR=${PROJECT_SOURCE_DIR};CCACHE_NOHASHDIR=1")
set(base "${CMAKE_CURRENT_BINARY_DIR}/consumers")

# add_build(name source options... -- command...): builds and installs below ${base}/name.
function(add_build name source)
    add_test(NAME ${name} COMMAND "${CMAKE_CTEST_COMMAND}" --build-and-test
        "${source}" "${base}/${name}/build" --build-noclean --build-target install
        --build-generator "${CMAKE_GENERATOR}"
        --build-options
            -DCMAKE_BUILD_TYPE=Release
            -DCMAKE_CXX_COMPILER_LAUNCHER=ccache
            "-DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}"
            "-DCMAKE_INSTALL_PREFIX=${base}/${name}/installed"
            ${ARGN})
    set_tests_properties(${name} PROPERTIES TIMEOUT 300 ENVIRONMENT "${CCACHE}")
endfunction()

foreach(kind IN ITEMS shared static)
    set(shared ON)
    set(components "")
    if(kind STREQUAL "static")
        set(shared OFF)
        set(components "COMPONENTS\\;SingleInstance\\;HostKit")
    endif()
    add_build(install_${kind} "${PROJECT_SOURCE_DIR}"
        -DBUILD_SHARED_LIBS=${shared} -DSINGLEINSTANCE_QT=${qt_major}
        -DSINGLEINSTANCE_BUILD_EXAMPLES=OFF -DSINGLEINSTANCE_BUILD_TESTS=OFF)
    set_tests_properties(install_${kind} PROPERTIES FIXTURES_SETUP ${kind})
    set(prefix "${base}/install_${kind}/installed")
    # To build the library once more takes long: once as a subdirectory, and once by FetchContent.
    set(own_tree fetch)
    if(kind STREQUAL "static")
        set(own_tree subdirectory)
    endif()
    foreach(way IN ITEMS package pkgconfig ${own_tree})
        set(name consumer_${way}_${kind})
        add_build(${name} "${CMAKE_CURRENT_SOURCE_DIR}/consumer"
            -DCONSUMER_FROM=${way}
            -DCONSUMER_QT=${qt_major}
            "-DCONSUMER_COMPONENTS=${components}"
            -DBUILD_SHARED_LIBS=${shared}
            "-DCMAKE_PREFIX_PATH=${prefix}"
            "-DSOURCES=${PROJECT_SOURCE_DIR}"
            --test-command "${CMAKE_CURRENT_SOURCE_DIR}/consumer/check.sh"
                "${base}/${name}/installed" ${kind})
        set_tests_properties(${name} PROPERTIES FIXTURES_REQUIRED ${kind})
    endforeach()
endforeach()

# Samples of the README that use the installed library. The complete program is for Qt 5.
foreach(sample IN ITEMS documents own_host)
    if(sample STREQUAL "own_host" OR qt_major EQUAL 5)
        add_build(consumer_${sample} "${CMAKE_CURRENT_BINARY_DIR}/${sample}"
            "-DCMAKE_PREFIX_PATH=${base}/install_shared/installed")
        set_tests_properties(consumer_${sample} PROPERTIES FIXTURES_REQUIRED shared)
    endif()
endforeach()

# A package for the other Qt is refused, with a message that names it.
math(EXPR other_qt "11 - ${qt_major}")
file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/find.cmake" "find_package(SingleInstance 1.0 REQUIRED)\n")
add_test(NAME consumer_of_other_qt COMMAND "${CMAKE_COMMAND}" -DQT_VERSION_MAJOR=${other_qt}
    "-DCMAKE_PREFIX_PATH=${base}/install_shared/installed" -P "${CMAKE_CURRENT_BINARY_DIR}/find.cmake")
set_tests_properties(consumer_of_other_qt PROPERTIES TIMEOUT 10 FIXTURES_REQUIRED shared
    PASS_REGULAR_EXPRESSION "built for Qt ${qt_major} and not for Qt ${other_qt}")

# A project that links both libraries gets a message that says why it cannot.
add_test(NAME consumer_of_both COMMAND "${CMAKE_COMMAND}" -G "${CMAKE_GENERATOR}"
    -S "${CMAKE_CURRENT_SOURCE_DIR}/consumer" -B "${base}/consumer_of_both/build"
    -DCONSUMER_FROM=package -DCONSUMER_QT=${qt_major} -DCONSUMER_LINKS_BOTH=ON
    "-DCMAKE_PREFIX_PATH=${base}/install_shared/installed" "-DSOURCES=${PROJECT_SOURCE_DIR}")
set_tests_properties(consumer_of_both PROPERTIES TIMEOUT 60 FIXTURES_REQUIRED shared
    PASS_REGULAR_EXPRESSION "IS_IN_HOSTKIT_SO_LINK_ONE_OF_THE_TWO")
add_test(NAME pkgconfig_of_both COMMAND sh -c
    "echo '#include <HostKit/InstanceSession.h>' | \"$0\" -fsyntax-only -x c++ $(pkg-config --cflags singleinstance singleinstance-hostkit) -"
    "${CMAKE_CXX_COMPILER}")
set_tests_properties(pkgconfig_of_both PROPERTIES TIMEOUT 10 FIXTURES_REQUIRED shared
    ENVIRONMENT "PKG_CONFIG_PATH=${base}/install_shared/installed/${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    PASS_REGULAR_EXPRESSION "link one of the two")
