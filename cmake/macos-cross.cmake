# Toolchain file: cross-builds the macOS ends on Linux. TESSARIN_MACOS_ARCHITECTURE is arm64 or x86_64.
# The compiler, its caches and the declarations of the platform stand below build/macos, where scripts/build-macos.sh puts them.
include(${CMAKE_CURRENT_LIST_DIR}/version.cmake)

set(TESSARIN_MACOS_ARCHITECTURE arm64 CACHE STRING "Architecture to build for: arm64 or x86_64")
if(NOT TESSARIN_MACOS_ARCHITECTURE MATCHES "^(arm64|x86_64)$")
    message(FATAL_ERROR "TESSARIN_MACOS_ARCHITECTURE is '${TESSARIN_MACOS_ARCHITECTURE}', not arm64 or x86_64")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TESSARIN_MACOS_ARCHITECTURE)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR ${TESSARIN_MACOS_ARCHITECTURE})
# The architecture and the oldest system are in the compiler's target; there is no SDK of the platform's maker.
set(CMAKE_OSX_ARCHITECTURES "" CACHE STRING "" FORCE)
set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "" FORCE)
set(CMAKE_OSX_SYSROOT "" CACHE STRING "" FORCE)

get_filename_component(tessarin_macos ${CMAKE_CURRENT_LIST_DIR}/../macos ABSOLUTE)
get_filename_component(tessarin_sdk ${CMAKE_CURRENT_LIST_DIR}/../build/macos/sdk ABSOLUTE)
set(CMAKE_C_COMPILER ${tessarin_macos}/toolchain/zig-cc)
set(CMAKE_CXX_COMPILER ${tessarin_macos}/toolchain/zig-c++)
set(CMAKE_OBJC_COMPILER ${tessarin_macos}/toolchain/zig-cc)
set(CMAKE_OBJCXX_COMPILER ${tessarin_macos}/toolchain/zig-c++)
set(CMAKE_AR ${tessarin_macos}/toolchain/zig-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${tessarin_macos}/toolchain/zig-ranlib CACHE FILEPATH "")

# Asked for by CMake, not used: nothing here has an install name.
find_program(CMAKE_INSTALL_NAME_TOOL NAMES llvm-install-name-tool llvm-install-name-tool-14)

if(TESSARIN_MACOS_ARCHITECTURE STREQUAL "arm64")
    set(tessarin_target aarch64-macos.${TESSARIN_MACOS_DEPLOYMENT_TARGET})
else()
    set(tessarin_target ${TESSARIN_MACOS_ARCHITECTURE}-macos.${TESSARIN_MACOS_DEPLOYMENT_TARGET})
endif()
# The compiler adds checks for undefined behaviour of its own to builds that are not optimised.
set(tessarin_flags_init "-target ${tessarin_target} -fno-sanitize=undefined -iframework ${tessarin_sdk}/Frameworks")
set(CMAKE_C_FLAGS_INIT "${tessarin_flags_init}")
set(CMAKE_CXX_FLAGS_INIT "${tessarin_flags_init}")
set(CMAKE_OBJC_FLAGS_INIT "${tessarin_flags_init} -fobjc-arc")
set(CMAKE_OBJCXX_FLAGS_INIT "${tessarin_flags_init} -fobjc-arc")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-F${tessarin_sdk}/Frameworks -L${tessarin_sdk}/lib -lobjc")

set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# Nothing of this machine's libraries is for the target.
set(CMAKE_FIND_ROOT_PATH ${tessarin_sdk})
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
