#!/usr/bin/env bash
# Tries the entry "Tessarin Properties" in real file managers: starts each on a private desktop, opens the context menu of a
# file, finds the entry through the accessibility bus, chooses it and waits for the properties window. Prints a table; pictures
# go to build/filemanagers/. Ends with 1 when one of those installed failed. Root tries as the user "nobody".
#
# Usage: scripts/filemanagers.sh [--build FOLDER] [--install] [NAME...]
#   NAME              nautilus, nemo, caja, dolphin or thunar; default: all. Those that are not installed are named and left out
#   --build FOLDER    the programs of that build folder; builds nothing
#   --install         installs those that are missing
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

/usr/bin/python3 -c 'import jeepney' 2>/dev/null || scripts/install-deps.sh demo
build=build/release
install=
names=()
while (($# > 0)); do
    case $1 in
    --build) build=${2:?--build needs a folder}; shift ;;
    --install) install=1 ;;
    nautilus | nemo | caja | dolphin | thunar) names+=("$1") ;;
    *) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0" >&2; exit 2 ;;
    esac
    shift
done
[[ -z $install ]] || scripts/install-deps.sh filemanagers
if [[ $build == build/release ]]; then
    scripts/build.sh release
fi
exec /usr/bin/python3 scripts/lib/filemanagers.py "$(realpath "$build")" "${names[@]}"
