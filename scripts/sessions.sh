#!/usr/bin/env bash
# Tries the agent in real sessions without a screen: GNOME Shell on Wayland, Xfce, sway and Plasma on Wayland. In each the agent
# is started from its autostart entry, its icon is looked for, a properties window is opened, and Firefox's address is awaited
# at the service host. Prints a table; pictures go to build/sessions/. Ends with 1 when something went wrong in one of those
# that are installed. Root tries as the user "nobody".
#
# Usage: scripts/sessions.sh [--build FOLDER] [--install] [NAME...]
#   NAME              gnome, xfce, sway or plasma; default: all. Those that are not installed are named and left out
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
    gnome | xfce | sway | plasma) names+=("$1") ;;
    *) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0" >&2; exit 2 ;;
    esac
    shift
done
[[ -z $install ]] || scripts/install-deps.sh sessions
if [[ $build == build/release ]]; then
    scripts/build.sh release
fi
exec /usr/bin/python3 scripts/lib/sessions.py "$(realpath "$build")" "${names[@]}"
