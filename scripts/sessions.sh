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

# shellcheck disable=SC2034  # read there
kind=sessions known="gnome xfce sway plasma"
. scripts/lib/try_real.sh
