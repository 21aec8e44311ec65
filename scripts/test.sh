#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test: optimised (unit, bus and desktop tests), then all but the desktop
# tests under the address and undefined-behaviour sanitizers, then the concurrency tests repeatedly and the load
# tests once under the thread sanitizer. At the end stand the failed tests with what they said; the last line sums up all runs.
# Not zero on any failure, and when there was nothing to run.
#
# On a Mac: the presets mac and, unless --quick, mac-asan; what they need is installed by hand, see docs/macos.md.
#
# Usage: scripts/test.sh [--quick] [--label REGEX] [-j N]
#   --quick          only the optimised run, without real browsers, the macOS application and load
#   --label REGEX    only tests with a matching label (unit, dbus, concurrency, load, desktop, architecture ...)
#   -j N             so many compilers at once and twice as many tests (not under the thread sanitizer), default: one per processor
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

quick=no
label=""
mac=no
[[ $(uname -s) != Darwin ]] || mac=yes
jobs=$(getconf _NPROCESSORS_ONLN)
while (($#)); do
    case $1 in
        --quick) quick=yes ;;
        --label) label=${2:?--label needs a value}; shift ;;
        -j) jobs=${2:?-j needs a number}; shift ;;
        -j*) jobs=${1#-j} ;;
        -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
        *) echo "test.sh: unknown option '$1'" >&2; exit 2 ;;
    esac
    shift
done

[[ $mac == yes ]] || scripts/install-deps.sh build test

export ASAN_OPTIONS=detect_stack_use_after_return=1:strict_string_checks=1:check_initialization_order=1
[[ $mac == yes ]] || export LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
export UBSAN_OPTIONS=print_stacktrace=1

logs=$(mktemp -d)
trap 'rm -rf "$logs"' EXIT
total=0 failed=0 broken=() summary=""

# run PRESET[:TARGET] CTEST-OPTION... : builds and tests one preset; keeps going after a failure so that all of it is reported.
run() {
    local preset=${1%%:*} target=${1#*:} passed_line counts
    [[ $target != "$preset" ]] || target=all
    local log=$logs/$preset
    shift
    echo "== $preset" >&2
    if ! scripts/build.sh "$preset" -j "$jobs" "$target"; then
        broken+=("$preset does not build")
        return
    fi
    [[ -z $label ]] || set -- "$@" -L "$label"
    local status=0
    # Most tests wait more than they work.
    ${without_aslr[@]+"${without_aslr[@]}"} ctest --test-dir "build/$preset" -j $((2 * jobs)) --output-on-failure --no-tests=ignore "$@" \
        </dev/null 2>&1 | tee "$log" || status=$?
    # "98% tests passed, 2 tests failed out of 100"; no such line when nothing matched.
    passed_line=$(grep -E '^[0-9]+% tests passed' "$log" | tail -1 || true)
    counts=$(sed -E 's/.*passed, ([0-9]+) tests? failed out of ([0-9]+).*/\1 \2/' <<<"${passed_line:-0 0}")
    failed=$((failed + ${counts% *}))
    total=$((total + ${counts#* }))
    summary+=", $preset ${counts#* }"
    # From a failed test's result to the next test, at most 60 lines: the whole log is long, and its end is what is read first.
    awk -v preset="$preset" '/ Test +#[0-9]+: / || /^ +Start +[0-9]+: / {left = 0}
        / Test +#[0-9]+: .*\*\*\*(Failed|Timeout|Exception|Not Run)/ {left = 60; print "== failed in " preset}
        left > 0 {print; left--}' "$log" >>"$logs/failures"
    if ((${counts#* } == 0)) && [[ -z $label ]]; then
        broken+=("$preset ran no test")
    elif ((status != 0 && ${counts% *} == 0)); then
        broken+=("ctest of $preset ended with $status")
    fi
}

without_aslr=()
if [[ $mac == yes ]]; then
    run mac
    [[ $quick == yes ]] || run mac-asan
elif [[ $quick == yes ]]; then
    run test -LE 'desktop|macos|load'
else
    # What the tests leave of the processors builds the macOS application, which its test then finds made.
    if [[ -z $label ]]; then
        chrt --idle 0 scripts/build-macos.sh >/dev/null 2>&1 &
    fi
    run test
    run asan -LE desktop
    # The thread sanitizer needs its address ranges free.
    ! setarch "$(uname -m)" -R true 2>/dev/null || without_aslr=(setarch "$(uname -m)" -R)
    # Its programs are busy, not waiting.
    run tsan:concurrency_programs -L concurrency --repeat until-fail:3 -j "$jobs"
    run tsan:concurrency_programs -L load
fi

((total > 0)) || broken+=("no test ran")
echo
cat "$logs/failures" 2>/dev/null || true
echo "Tests per run: ${summary#, }"
for problem in ${broken[@]+"${broken[@]}"}; do
    echo "Problem: $problem"
done
((total == 0)) || echo "$(((total - failed) * 100 / total))% tests passed, $failed tests failed out of $total"
((failed == 0 && ${#broken[@]} == 0))
