# shellcheck shell=bash
# Sourced by the scripts that try real desktops, with their arguments. `kind`: the group of packages and the program in this folder that
# tries them; `known`: the names that may be given.

/usr/bin/python3 -c 'import jeepney' 2>/dev/null || scripts/install-deps.sh demo
build=build/release
install=
names=()
while (($# > 0)); do
    case $1 in
    --build) build=${2:?--build needs a folder}; shift ;;
    --install) install=1 ;;
    *)
        [[ " ${known:?} " == *" $1 "* ]] || { sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0" >&2; exit 2; }
        names+=("$1")
        ;;
    esac
    shift
done
[[ -z $install ]] || scripts/install-deps.sh "${kind:?}"
if [[ $build == build/release ]]; then
    scripts/build.sh release
fi
exec /usr/bin/python3 "scripts/lib/${kind:?}.py" "$(realpath "$build")" "${names[@]}"
