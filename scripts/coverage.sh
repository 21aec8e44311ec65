#!/usr/bin/env bash
# Builds the tests with clang's counters, runs those that need no desktop of their own, and prints for each room how many of its lines
# and branches they ran. build/coverage/missed.txt has the lines that no test ran. The desktop tests run the agent of the optimised
# build and count nothing.
#
# Usage: scripts/coverage.sh [--label REGEX] [-j N]
#   --label REGEX    only tests with a matching label; default: 'unit|dbus'
#   -j N             so many compilers and twice as many tests at once, default: one per processor
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

label='unit|dbus' jobs=$(nproc)
while (($#)); do
    case $1 in
        --label) label=${2:?--label needs a value}; shift ;;
        -j) jobs=${2:?-j needs a number}; shift ;;
        -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
        *) echo "coverage.sh: unknown option '$1'" >&2; exit 2 ;;
    esac
    shift
done

scripts/install-deps.sh build test coverage
scripts/build.sh coverage -j "$jobs"

build=build/coverage
rm -rf "$build/profiles"
mkdir -p "$build/profiles"
# Processes of one program add to one of four files, also those of other users. Whether tests pass is for scripts/test.sh; this one lists
# those that did not.
chmod 0777 "$build/profiles"
export LLVM_PROFILE_FILE=$PWD/$build/profiles/%4m.profraw
umask 0
ctest --test-dir "$build" -j $((2 * jobs)) -L "$label" -LE 'desktop|load|macos|packages' --output-on-failure </dev/null \
    >"$build/tests.log" 2>&1 || true
tail -n 30 "$build/tests.log" >&2

llvm-profdata merge -sparse "$build"/profiles/*.profraw -o "$build/all.profdata"
/usr/bin/python3 scripts/lib/coverage_table.py "$build"
