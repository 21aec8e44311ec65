if(TESSARIN_PLATFORM STREQUAL "macos")
    include(${CMAKE_CURRENT_LIST_DIR}/macos-dependencies.cmake)
    return()
endif()

find_package(Threads REQUIRED)
find_package(fmt 9 REQUIRED)
find_package(Boost 1.81 REQUIRED)
find_path(RAPIDJSON_INCLUDE_DIR rapidjson/document.h REQUIRED)
# Stack traces print symbol names through the dynamic symbol table; no external program is started.
add_library(tessarin_boost INTERFACE)
target_link_libraries(tessarin_boost INTERFACE Boost::headers Threads::Threads ${CMAKE_DL_LIBS})
target_link_options(tessarin_boost INTERFACE -rdynamic)

find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets Svg)
if(TESSARIN_BUILD_TESTS OR TESSARIN_BUILD_BENCH)
    # Peers that share nothing with the bus library of the product.
    find_package(Qt6 6.4 REQUIRED COMPONENTS DBus)
endif()
find_package(PkgConfig REQUIRED)
pkg_check_modules(XCB REQUIRED IMPORTED_TARGET xcb xcb-res)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
if(TESSARIN_ISAL OR TESSARIN_BUILD_BENCH)
    pkg_check_modules(ISAL REQUIRED IMPORTED_TARGET libisal)
endif()

# The service host's scanner matches with it.
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)
