#!/usr/bin/env bash
# Shows the product at work: builds it, runs service host, agent, panel, Firefox and Chromium, opens menu and properties
# windows, tours a few local pages in both browsers and prints every report as a line of JSON. Screenshots and the agent's
# log go to build/demo/.
#
# Usage: scripts/demo.sh [--own-display] [--build FOLDER]
#   --own-display     a virtual display even when DISPLAY names a real one
#   --build FOLDER    use the programs of that build folder; installs and builds nothing
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

/usr/bin/python3 -c 'import jeepney' 2>/dev/null || scripts/install-deps.sh demo
exec /usr/bin/python3 scripts/lib/demo.py "$@"
