#!/bin/sh
# Removes the product from this Mac: agents and daemon end, files, receipts and privacy entries go. Settings and
# the logs of the system go too; those in the users' ~/Library/Logs/Tessarin stay.
#
# Usage: sudo ./uninstall.sh [--dry-run]
set -eu
dry=no
case ${1-} in
'') ;;
--dry-run) dry=yes ;;
*) echo "uninstall.sh: unknown option '$1'" >&2; exit 2 ;;
esac
if [ "$dry" = no ] && [ "$(id -u)" -ne 0 ]; then
    echo "uninstall.sh: must be run as root (sudo)" >&2
    exit 1
fi

# Prints a command and runs it; what is gone already is no failure.
run() {
    echo "+ $*"
    [ "$dry" = yes ] || "$@" || true
}

program=/Applications/Tessarin/TessarinUserAgent.app/Contents/MacOS/TessarinUserAgent
for user in $(ps -axo uid=,comm= | awk -v program="$program" '$2 == program {print $1}' | sort -u); do
    run launchctl bootout "gui/$user/com.tessarin.UserAgent"
done
run launchctl bootout system/com.tessarin.ServiceHost
run rm -f /Library/LaunchAgents/com.tessarin.UserAgent.plist /Library/LaunchDaemons/com.tessarin.ServiceHost.plist
run rm -rf /Applications/Tessarin /Library/Logs/Tessarin
run rm -f /Library/Logs/com.tessarin.ServiceHost_0.log /Library/Logs/com.tessarin.ServiceHost_1.log
run pkgutil --forget com.tessarin.UserAgent
run tccutil reset Accessibility com.tessarin.UserAgent
run tccutil reset SystemPolicyAllFiles com.tessarin.UserAgent
