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
if(CMAKE_BUILD_TYPE STREQUAL "Release" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # Fully optimised, a text in front of a std::string makes GCC 12 warn of copies that cannot be.
    target_compile_options(tessarin_flags INTERFACE -Wno-restrict)
endif()
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # A source that is compiled with others counts as included, where unnamed namespaces are taken for a header's.
    target_compile_options(tessarin_flags INTERFACE -Wno-subobject-linkage)
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
