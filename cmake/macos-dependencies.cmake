# What cmake/dependencies.cmake provides, for macOS: the portable libraries are used by their headers only, so that the program needs
# the system's libraries and no others. With the hardened runtime it may not load any that somebody else signed, and those of this
# machine may be of one architecture and for a newer system. The headers are reached through a folder that has nothing else of it.
find_package(Threads REQUIRED)

set(tessarin_headers ${CMAKE_BINARY_DIR}/third-party)
file(MAKE_DIRECTORY ${tessarin_headers})
if(NOT CMAKE_HOST_APPLE)
    # The folders of the target, where CMake looks otherwise, have none.
    set(tessarin_where PATHS /usr/include /usr/local/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
endif()
find_path(TESSARIN_fmt_PARENT NAMES fmt/format.h ${tessarin_where} REQUIRED)
find_path(TESSARIN_boost_PARENT NAMES boost/version.hpp ${tessarin_where} REQUIRED)
find_path(TESSARIN_rapidjson_PARENT NAMES rapidjson/document.h ${tessarin_where} REQUIRED)

# tessarin_required_version(LIBRARY MACRO OLDEST HEADER...): one of the headers states the version as a number.
function(tessarin_required_version library macro oldest)
    set(found 0)
    foreach(header ${ARGN})
        if(EXISTS ${TESSARIN_${library}_PARENT}/${header})
            file(STRINGS ${TESSARIN_${library}_PARENT}/${header} line REGEX "^#define ${macro} +[0-9]+")
            if(line MATCHES "([0-9]+)")
                set(found ${CMAKE_MATCH_1})
            endif()
        endif()
    endforeach()
    if(found LESS oldest)
        message(FATAL_ERROR "${library} is ${found}, ${oldest} or newer is needed")
    endif()
endfunction()
tessarin_required_version(fmt FMT_VERSION 90000 fmt/core.h fmt/base.h)
tessarin_required_version(boost BOOST_VERSION 108100 boost/version.hpp)

file(CREATE_LINK ${TESSARIN_fmt_PARENT}/fmt ${tessarin_headers}/fmt SYMBOLIC)
file(CREATE_LINK ${TESSARIN_boost_PARENT}/boost ${tessarin_headers}/boost SYMBOLIC)
include(${CMAKE_CURRENT_LIST_DIR}/rapidjson.cmake)
tessarin_mended_rapidjson(RAPIDJSON_INCLUDE_DIR ${TESSARIN_rapidjson_PARENT})
if(RAPIDJSON_INCLUDE_DIR STREQUAL TESSARIN_rapidjson_PARENT)
    file(CREATE_LINK ${TESSARIN_rapidjson_PARENT}/rapidjson ${tessarin_headers}/rapidjson SYMBOLIC)
    set(RAPIDJSON_INCLUDE_DIR ${tessarin_headers})
endif()

add_library(tessarin_fmt INTERFACE)
target_include_directories(tessarin_fmt SYSTEM INTERFACE ${tessarin_headers})
target_compile_definitions(tessarin_fmt INTERFACE FMT_HEADER_ONLY=1)
add_library(fmt::fmt ALIAS tessarin_fmt)

# The header of the stack traces asks for a macro of the C library that this platform does not need.
add_library(tessarin_boost INTERFACE)
target_include_directories(tessarin_boost SYSTEM INTERFACE ${tessarin_headers})
target_compile_definitions(tessarin_boost INTERFACE BOOST_STACKTRACE_GNU_SOURCE_NOT_REQUIRED)
target_link_libraries(tessarin_boost INTERFACE Threads::Threads)
