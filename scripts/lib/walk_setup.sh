# shellcheck shell=bash
# The beginning of scripts/truth.sh and scripts/soak.sh, read by them: tells their usage, or builds what they walk with.
case " $* " in
    *' -h '* | *' --help '*) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "scripts/$(basename "$0")"; exit 0 ;;
    *' --build'*) ;;
    *)
        scripts/install-deps.sh build demo
        scripts/build.sh release
        ;;
esac
