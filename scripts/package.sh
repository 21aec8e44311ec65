#!/usr/bin/env bash
# Makes the packages: a set of deb and one of rpm, in build/package/packages. The same sources give the same bytes.
#
# Usage: scripts/package.sh [--build FOLDER] [deb] [rpm]
#   --build FOLDER   of the programs in that build folder, which are not built
# The times in the packages are those of SOURCE_DATE_EPOCH, without it that of the last commit.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

folder=""
formats=()
while (($#)); do
    case $1 in
        --build) folder=${2:?--build needs a folder}; shift ;;
        deb | rpm) formats+=("${1^^}") ;;
        -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
        *) echo "package.sh: unknown option '$1'" >&2; exit 2 ;;
    esac
    shift
done
((${#formats[@]} > 0)) || formats=(DEB RPM)

export LC_ALL=C.UTF-8
umask 022
: "${SOURCE_DATE_EPOCH:=$(git log -1 --format=%ct 2>/dev/null || stat -c %Y cmake/version.cmake)}"
export SOURCE_DATE_EPOCH

if [[ -z $folder ]]; then
    scripts/install-deps.sh build package
    folder=build/package
    launcher=()
    if command -v ccache >/dev/null; then
        # With a base folder the compiler would be told other paths than without the cache, and the debug symbols have them.
        unset CCACHE_BASEDIR
        launcher+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    cmake --preset release -B "$folder" "${launcher[@]}" >&2
fi
cmake --build "$folder" --target package_files >&2
rm -rf "$folder/packages"
for format in "${formats[@]}"; do
    (cd "$folder" && cpack -G "$format") >&2
done
rm -rf "$folder/packages/_CPack_Packages"
ls "$folder"/packages/*
