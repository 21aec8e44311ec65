#!/usr/bin/env bash
# Checks the sources' format (clang-format), the C++ code (clang-tidy) and the shell scripts (shellcheck).
#
# Usage: scripts/lint.sh [--format-only] [--fix] [--recent] [--changed] [--deep]
#   --format-only    no clang-tidy
#   --recent         clang-tidy only on files of the last ten commits, as far as there are so many
#   --fix            formats the C++ code instead of checking its format
#   --changed        clang-tidy only on files that differ from the last commit
#   --deep           clang-tidy with its slow path-sensitive checks
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

tidy=all
deep=
format=(--dry-run --Werror)
for option; do
    case $option in
        --format-only) tidy=no ;;
        --fix) format=(-i) ;;
        --recent) tidy=recent ;;
        --changed) tidy=changed ;;
        --deep) deep=deep ;;
        *) echo "lint.sh: unknown option '$option'" >&2; exit 2 ;;
    esac
done
scripts/install-deps.sh build test lint

folders=()
for folder in common linux macos tools tests bench fuzz; do
    [[ ! -d $folder ]] || folders+=("$folder")
done

mapfile -t sources < <(find "${folders[@]}" -name '*.h' -o -name '*.cpp' -o -name '*.mm' | sort)
((${#sources[@]} > 0)) || { echo "lint.sh: found no sources" >&2; exit 1; }
clang-format "${format[@]}" "${sources[@]}"
echo "clang-format: ${#sources[@]} files" >&2

mapfile -t shell < <(find scripts .ci/run packaging -name '*.sh' -o -path .ci/run -o -path 'packaging/session/*' -o -path 'packaging/scripts/*/p*' -o -path 'packaging/macos/scripts/p*' | sort)
((${#shell[@]} > 0)) || { echo "lint.sh: found no scripts" >&2; exit 1; }
shellcheck "${shell[@]}"
echo "shellcheck: ${#shell[@]} files" >&2

[[ $tidy != no ]] || exit 0
# Generated headers (forms, meta objects) must be there, nothing else needs to be built.
cmake --preset lint >/dev/null
mapfile -t generators < <(find build/lint -name AutogenInfo.json)
((${#generators[@]} > 0)) || { echo "lint.sh: found no generated headers to make" >&2; exit 1; }
for generator in "${generators[@]}"; do
    cmake -E cmake_autogen "$generator" RelWithDebInfo
done
python3 scripts/lib/run_tidy.py build/lint "$tidy" $deep
