# Compiler flags live on this interface target; every target of the project links it.
add_library(tessarin_flags INTERFACE)
target_compile_options(
    tessarin_flags
    INTERFACE -Wall
              -Wextra
              -Werror
              -Wpedantic
              -Wshadow
              -Wconversion
              -Wnon-virtual-dtor
              -Woverloaded-virtual
              -Wcast-qual
              -Wformat=2
              -Wimplicit-fallthrough
              # Source paths in messages and exceptions are relative to the project.
              "-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/="
              "-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")
if(TESSARIN_PLATFORM STREQUAL "macos")
    # Reference counting belongs to the sources: what they say depends on it.
    target_compile_options(tessarin_flags INTERFACE $<$<COMPILE_LANGUAGE:OBJCXX>:-fobjc-arc>)
endif()
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # A source that is compiled with others counts as included, where unnamed namespaces are taken for a header's.
    target_compile_options(tessarin_flags INTERFACE -Wno-subobject-linkage)
endif()
if(TESSARIN_PLATFORM STREQUAL "linux" AND CMAKE_BUILD_TYPE MATCHES "^Rel" AND NOT TESSARIN_SANITIZE AND NOT TESSARIN_BUILD_FUZZ)
    # What ships and what is measured. Debian's own flags for programs, with those that it leaves to each package.
    target_compile_options(
        tessarin_flags
        INTERFACE -fstack-protector-strong
                  -fstack-clash-protection
                  $<$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},x86_64>:-fcf-protection>
                  # Set by some compilers themselves, to another level. It needs the optimiser, which most tests do without.
                  -U_FORTIFY_SOURCE
                  $<$<NOT:$<BOOL:$<TARGET_PROPERTY:TESSARIN_NOT_OPTIMISED>>>:-D_FORTIFY_SOURCE=2>)
    # Before the targets' options: Qt's ask for more (-fPIC), without which its programs end at once.
    add_compile_options(-fPIE)
    target_link_options(tessarin_flags INTERFACE -pie -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
endif()
if(TESSARIN_SANITIZE)
    target_compile_options(tessarin_flags INTERFACE "-fsanitize=${TESSARIN_SANITIZE}" -fno-omit-frame-pointer
                                                    -fno-sanitize-recover=all)
    target_link_options(tessarin_flags INTERFACE "-fsanitize=${TESSARIN_SANITIZE}")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # GCC warns about code the sanitizers themselves insert.
        target_compile_options(tessarin_flags INTERFACE -Wno-maybe-uninitialized -Wno-tsan)
    endif()
endif()

# tessarin_library(NAME SOURCES ... PUBLIC_INCLUDE dir LINKS ... [APART source ...]): APART are sources that are never joined with
# others: they ask what each program answers for itself, and a program that does not use them shall not have to.
function(tessarin_library name)
    cmake_parse_arguments(ARG "" "PUBLIC_INCLUDE" "SOURCES;LINKS;APART" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    set_source_files_properties(${ARG_APART} PROPERTIES SKIP_UNITY_BUILD_INCLUSION ON)
    if(ARG_PUBLIC_INCLUDE)
        target_include_directories(${name} PUBLIC ${ARG_PUBLIC_INCLUDE})
    endif()
    target_link_libraries(${name} PUBLIC ${ARG_LINKS} PRIVATE tessarin_flags)
endfunction()
