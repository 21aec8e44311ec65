#!/usr/bin/env bash
# On a Mac: makes the disk image that is handed out, build/mac-package/Tessarin-VERSION.dmg, with an installer package and the
# uninstaller: builds both architectures, signs from the inside out with a time stamp and the hardened runtime, has Apple notarise
# package and image, staples the tickets and verifies all of it. Each step is printed before it is done.
#
# Usage: scripts/package-macos.sh [--dry-run] --identity NAME --installer-identity NAME --notary-profile NAME
#                                 [--extension FILE.appex] [--with-host] [--installation-key KEY]
#   --dry-run                   only prints the steps; on any system
#   --identity NAME             "Developer ID Application: ..." in the keychain
#   --installer-identity NAME   "Developer ID Installer: ..."
#   --notary-profile NAME       as stored by: xcrun notarytool store-credentials NAME
#   --extension FILE.appex      the file manager's extension, put into the application; without it the menu can only say Off
#   --with-host                 the service host too, as a launch daemon, for machines without the product's daemon
#   --installation-key KEY      for the settings that an installation makes (default: empty)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

usage() { sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p;}' "$0"; }

dry=no identity="" installer="" profile="" extension="" host=no key=""
while (($#)); do
    case $1 in
        --dry-run) dry=yes ;;
        --identity) identity=${2:?--identity needs a name}; shift ;;
        --installer-identity) installer=${2:?--installer-identity needs a name}; shift ;;
        --notary-profile) profile=${2:?--notary-profile needs a name}; shift ;;
        --extension) extension=${2:?--extension needs a file}; shift ;;
        --with-host) host=yes ;;
        --installation-key) key=${2?--installation-key needs a key}; shift ;;
        -h | --help) usage; exit 0 ;;
        *) echo "package-macos.sh: unknown option '$1'" >&2; exit 2 ;;
    esac
    shift
done
if [[ -z $identity || -z $installer || -z $profile ]]; then
    echo "package-macos.sh: --identity, --installer-identity and --notary-profile are needed; see --help" >&2
    exit 2
fi
if [[ ! $key =~ ^[A-Za-z0-9._-]*$ ]]; then
    echo "package-macos.sh: the installation key may have letters, digits and . _ - only" >&2
    exit 2
fi
if [[ -n $extension && $extension != *.appex ]]; then
    echo "package-macos.sh: '$extension' is no .appex" >&2
    exit 2
fi
if [[ $dry == no && $(uname -s) != Darwin ]]; then
    echo "package-macos.sh: needs a Mac; elsewhere only --dry-run" >&2
    exit 1
fi

version=$(sed -n 's/^set(TESSARIN_VERSION \([0-9.]*\))$/\1/p' cmake/version.cmake)
[[ -n $version ]] || { echo "package-macos.sh: cmake/version.cmake states no version" >&2; exit 1; }
out=build/mac-package
build=$out/build
root=$out/root
folder=$root/Applications/Tessarin
app=$folder/TessarinUserAgent.app
resources=macos/TessarinUserAgent/resources
package=$out/Tessarin.pkg
image=$out/Tessarin-$version.dmg

say() { printf '== %s\n' "$*"; }
# Prints a command so that it can be pasted, and runs it.
run() {
    printf '+'
    printf ' %q' "$@"
    printf '\n'
    [[ $dry == yes ]] || "$@"
}
sign() { run codesign --force --timestamp --options runtime --sign "$identity" "$@"; }
# notarise FILE: waits for the answer; fails when it is not "Accepted".
notarise() {
    run xcrun notarytool submit "$1" --keychain-profile "$profile" --wait
    run xcrun stapler staple "$1"
    run xcrun stapler validate "$1"
}

say "Build both architectures"
run rm -rf "$root" "$out/disk" "$out/scripts" "$package" "$image"
run cmake -G Ninja -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo "-DCMAKE_OSX_ARCHITECTURES=arm64;x86_64" \
    -DTESSARIN_BUILD_TESTS=OFF
run cmake --build "$build"
run env "TESSARIN_PROGRAMS=$build/TessarinUserAgent.app/Contents/MacOS/TessarinUserAgent:$build/TessarinServiceHost" \
    python3 tests/macos/test_libraries.py

say "Lay out what is installed"
run mkdir -p "$folder" "$root/Library/LaunchAgents"
run ditto "$build/TessarinUserAgent.app" "$app"
run install -m 755 "$build/TessarinSettings" "$folder/TessarinSettings"
run install -m 755 packaging/macos/uninstall.sh "$folder/uninstall.sh"
run install -m 644 packaging/settings.json "$folder/settings.template.json"
run sed -i.bak "s/\"Platform\": \"Linux\"/\"Platform\": \"macOS\"/" "$folder/settings.template.json"
run rm "$folder/settings.template.json.bak"
run install -m 644 "$resources/com.tessarin.UserAgent.plist" "$root/Library/LaunchAgents/com.tessarin.UserAgent.plist"
if [[ $host == yes ]]; then
    run mkdir -p "$root/Library/LaunchDaemons"
    run install -m 755 "$build/TessarinServiceHost" "$folder/TessarinServiceHost"
    run install -m 644 macos/TessarinServiceHost/com.tessarin.ServiceHost.plist \
        "$root/Library/LaunchDaemons/com.tessarin.ServiceHost.plist"
fi
if [[ -n $extension ]]; then
    run mkdir -p "$app/Contents/PlugIns"
    run ditto "$extension" "$app/Contents/PlugIns/$(basename "$extension")"
else
    say "No extension of the file manager was given: the menu's item for it says Off"
fi

say "Sign, from the inside out"
if [[ -n $extension ]]; then
    sign --preserve-metadata=identifier,entitlements "$app/Contents/PlugIns/$(basename "$extension")"
fi
sign "$folder/TessarinSettings"
[[ $host == no ]] || sign "$folder/TessarinServiceHost"
sign --entitlements "$resources/TessarinUserAgent.entitlements" "$app"
run codesign --verify --deep --strict --verbose=2 "$app"
run codesign --verify --strict --verbose=2 "$folder/TessarinSettings"
[[ $host == no ]] || run codesign --verify --strict --verbose=2 "$folder/TessarinServiceHost"

say "Make the package; its files belong to root"
run mkdir -p "$out/scripts"
run install -m 755 packaging/macos/scripts/preinstall "$out/scripts/preinstall"
run install -m 755 packaging/macos/scripts/postinstall "$out/scripts/postinstall"
run sed -i.bak "s/^key=.*/key=$key/" "$out/scripts/postinstall"
run rm "$out/scripts/postinstall.bak"
# Where it lies is where the agent's file looks for it, also when another copy was found elsewhere.
run pkgbuild --analyze --root "$root" "$out/components.plist"
run plutil -replace 0.BundleIsRelocatable -bool NO "$out/components.plist"
run pkgbuild --root "$root" --component-plist "$out/components.plist" --scripts "$out/scripts" --identifier com.tessarin.UserAgent --version "$version" \
    --ownership recommended --install-location / --sign "$installer" --timestamp "$package"
run pkgutil --check-signature "$package"
notarise "$package"
run spctl --assess --type install --verbose=2 "$package"

say "Make the disk image"
run mkdir -p "$out/disk"
run cp "$package" packaging/macos/uninstall.sh "$out/disk/"
run hdiutil create -volname "Tessarin $version" -srcfolder "$out/disk" -format UDZO -ov "$image"
run codesign --force --timestamp --sign "$identity" "$image"
notarise "$image"
run spctl --assess --type open --context context:primary-signature --verbose=2 "$image"
say "Done: $image"
