#!/usr/bin/env bash
# Walks through real browsers by random steps and judges the agent after each by what the browser itself says its address
# field shows. Prints each step and fault as it comes, at the end a table; ends with 1 when the agent was wrong.
#
# Usage: scripts/truth.sh [--browser firefox|chromium]... [--steps N] [--seed S] [--kinds A,B] [--without A,B] [--build FOLDER]
#                         [--session NAME] [--stop-after FAULTS] [--quiet]
#   --browser         which to walk through; default: both, one after the other
#   --steps N         so many steps a browser, default: 60
#   --seed S          the walk of that seed again; default: a random one
#   --kinds, --without
#                     only, or all but, these kinds of steps; a wrong name prints them all
#   --build FOLDER    the agent of that build folder; builds and installs nothing
#   --session NAME    x11, or wayland: no X server; the steps that its compositor cannot do are left out. Root walks there as
#                     the user "nobody"
#   --stop-after N    no more steps after so many faults
#   --quiet           faults only
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

. scripts/lib/walk_setup.sh
exec /usr/bin/python3 scripts/lib/truth.py "$@"
