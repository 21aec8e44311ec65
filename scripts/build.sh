#!/usr/bin/env bash
# Configures and builds one preset into build/PRESET.
#
# Usage: scripts/build.sh [PRESET] [NINJA-OPTION...]     presets: release (default: agent and host) test debug asan tsan bench
#                                                        coverage fuzz; on a Mac: mac mac-asan
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

preset=${1:-release}
shift || true

options=()
if command -v ccache >/dev/null; then
    export CCACHE_BASEDIR=$PWD
    options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
cmake --preset "$preset" ${options[@]+"${options[@]}"} >&2
cmake --build --preset "$preset" -- "$@" >&2
