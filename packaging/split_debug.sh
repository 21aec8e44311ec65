#!/bin/sh
# Makes of a program one without debug symbols, and a file with them where debuggers look for it by the program's build id.
#
# Usage: split_debug.sh PROGRAM STRIPPED FOLDER     FOLDER stands for /usr/lib/debug/.build-id and is made anew
set -eu
id=$(readelf -n "$1" | sed -n 's/^ *Build ID: //p')
rest=${id#??}
if [ -z "$rest" ]; then
    printf 'split_debug.sh: %s has no build id\n' "$1" >&2
    exit 1
fi
folder=$3/${id%"$rest"}
rm -rf "$3"
mkdir -p "$folder" "$(dirname "$2")"
objcopy --only-keep-debug --compress-debug-sections=zlib "$1" "$folder/$rest.debug"
chmod 644 "$folder/$rest.debug"
strip --strip-unneeded --remove-section=.comment --remove-section=.note -o "$2" "$1"
objcopy --add-gnu-debuglink="$folder/$rest.debug" "$2"
