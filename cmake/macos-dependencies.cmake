# What cmake/dependencies.cmake provides, for the cross build: the portable libraries are used by their headers only. They
# are this machine's, reached through a folder that has nothing else of it.
find_package(Threads REQUIRED)

set(tessarin_headers ${CMAKE_BINARY_DIR}/third-party)
file(MAKE_DIRECTORY ${tessarin_headers})
foreach(library fmt boost rapidjson)
    find_path(TESSARIN_${library}_PARENT NAMES ${library} PATHS /usr/include /usr/local/include NO_DEFAULT_PATH
              NO_CMAKE_FIND_ROOT_PATH REQUIRED)
endforeach()
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
