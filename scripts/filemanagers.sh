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

# shellcheck disable=SC2034  # read there
kind=filemanagers known="nautilus nemo caja dolphin thunar"
. scripts/lib/try_real.sh
