#!/usr/bin/env bash
# Builds the fuzz targets and runs each for some time, one per processor at once. At the end stands a table: executions, edges of the
# program that were reached, inputs that were kept, and findings. Not zero when there is a finding or a target did not run. New inputs
# stay in build/fuzz/found/TARGET for the next time, findings in build/fuzz/findings.
#
# Usage: scripts/fuzz.sh [SECONDS] [TARGET...]     60 seconds and all targets, if nothing is said
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

case ${1:-} in
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
esac
seconds=${1:-60}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || { echo "fuzz.sh: '$seconds' are no seconds" >&2; exit 2; }
shift || true
targets=("$@")
if ((${#targets[@]} == 0)); then
    for source in fuzz/*Fuzz.cpp; do
        targets+=("$(basename "$source" .cpp)")
    done
fi

scripts/install-deps.sh build fuzz
scripts/build.sh fuzz "${targets[@]}"

findings=build/fuzz/findings
logs=build/fuzz/logs
rm -rf "$findings" "$logs"
mkdir -p "$findings" "$logs"
export UBSAN_OPTIONS=print_stacktrace=1

# fuzz TARGET: SettingsFuzz has its seeds in corpus/settings, PropertiesURLFuzz in corpus/properties_url.
fuzz() {
    local corpus found=build/fuzz/found/$1
    corpus=fuzz/corpus/$(sed -E 's/Fuzz$//; s/([a-z0-9])([A-Z])/\1_\2/g' <<<"$1" | tr '[:upper:]' '[:lower:]')
    mkdir -p "$found"
    [[ -d $corpus ]] || corpus=$found
    nice -n 15 "build/fuzz/fuzz/$1" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$findings/$1-" "$found" "$corpus" >"$logs/$1" 2>&1
}

running=0
for target in "${targets[@]}"; do
    if ((running >= $(nproc))); then
        wait -n || true
        running=$((running - 1))
    fi
    fuzz "$target" &
    running=$((running + 1))
done
wait || true

failed=0
printf '%-20s %12s %8s %8s %8s\n' target executions edges inputs findings
for target in "${targets[@]}"; do
    log=$logs/$target
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    # "#4096 pulse cov: 312 ft: 801 corp: 97/3kb ..."
    edges=$(sed -nE 's/^#.* cov: ([0-9]+) .*/\1/p' "$log" | tail -1)
    inputs=$(sed -nE 's/^#.* corp: ([0-9]+).*/\1/p' "$log" | tail -1)
    found=$(find "$findings" -name "$target-*" | wc -l)
    printf '%-20s %12s %8s %8s %8s\n' "$target" "${executions:--}" "${edges:--}" "${inputs:--}" "$found"
    if ((found > 0)) || ! grep -q '^Done [1-9]' "$log"; then
        failed=1
        tail -40 "$log" >&2
    fi
done
exit "$failed"
