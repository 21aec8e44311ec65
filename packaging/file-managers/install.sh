#!/bin/sh
# Adds "Tessarin Properties" to the context menu of a file manager, for the user who runs this.
#
# Usage: install.sh [install|remove|status] [nautilus|nemo|caja|thunar|dolphin]
#        without a file manager: the one of this desktop
#
# Exit codes: 0 done, or installed; 1 failed; 2 wrong arguments; 3 not installed.
# TESSARIN_AGENT names the agent's program when this script does not lie in its application folder.
set -eu

agent=${TESSARIN_AGENT-}
if [ -z "$agent" ]; then
    case $0 in
    */*) here=${0%/*} ;;
    *) here=. ;;
    esac
    agent=$here/../../Linux/TessarinUserAgent
fi
if [ ! -x "$agent" ]; then
    printf 'install.sh: no agent at %s; set TESSARIN_AGENT to its path\n' "$agent" >&2
    exit 1
fi
[ "$#" -gt 0 ] || set -- install
exec "$agent" --file-manager-action "$@"
