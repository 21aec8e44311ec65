#!/usr/bin/env bash
# Builds and runs the benchmarks with the flags of what ships, ours and peers in the same run with interleaved repetitions; prints
# the ratios of their medians beside the aims and fails when one is missed by more than a fifth. Results go to build/bench/results:
# *.json, summary.md, and a picture of each row of benchmarks that differ in a size. Quote ratios: times are the machine's.
#
# Usage: scripts/bench.sh [--quick] [--undisturbed] [FILTER]
#   --quick          few repetitions; the agent's idle costs over 10 seconds
#   --undisturbed    the benchmarks that need no desktop at real-time priority: on a busy machine the wait for a processor outweighs
#                    what is measured (needs root)
#   FILTER           only what matches, e.g. Log, Settings, Crc64, Traverse, Messages, Interface, agent, accessibility
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

repetitions=11 min_time=0.2 idle=60 filter="" priority=()
for option; do
    case $option in
        --quick) repetitions=3 min_time=0.05 idle=10 ;;
        --undisturbed) priority=(chrt --rr 1) ;;
        -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "$0"; exit 0 ;;
        -*) echo "bench.sh: unknown option '$option'" >&2; exit 2 ;;
        *) filter=$option ;;
    esac
done

scripts/install-deps.sh build bench
scripts/build.sh bench bench/all

results=build/bench/results
rm -rf "$results"
mkdir -p "$results"
ran=0
for program in build/bench/bench/{Common,Messages,Interface}/*Bench; do
    name=$(basename "$program")
    [[ -x $program && ${name,,} =~ ${filter,,} ]] || continue
    echo "== $name" >&2
    private_bus=()
    [[ $program == */Common/* ]] || private_bus=(dbus-run-session --)
    "${priority[@]}" "${private_bus[@]}" "$program" --benchmark_repetitions="$repetitions" --benchmark_min_time="$min_time" \
        --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true \
        --benchmark_out="$results/$name.json" --benchmark_out_format=json >/dev/null
    # What an answer costs both ends in memory: their processes are measured, not this one.
    [[ $name != MessagesBench ]] || "${private_bus[@]}" "$program" memory >"$results/messages_memory.json"
    [[ $name != SettingsBench ]] || "$program" memory >"$results/settings_memory.json"
    ran=$((ran + 1))
done

# What needs a desktop of its own and the agent.
for script in bench/*/*_bench.py; do
    name=$(basename "$script" _bench.py)
    [[ ${name,,} =~ ${filter,,} ]] || continue
    echo "== $name" >&2
    scripts/build.sh release
    options=()
    [[ $name != agent ]] || options=(--idle-seconds "$idle")
    /usr/bin/python3 "$script" "build/bench/$(dirname "$script")" build/release "$results/$name.json" "${options[@]}" >&2
    ran=$((ran + 1))
done

((ran > 0)) || { echo "bench.sh: no benchmark matches '$filter'" >&2; exit 1; }
/usr/bin/python3 scripts/lib/bench_plots.py "$results" >&2
/usr/bin/python3 scripts/lib/bench_table.py "$results" bench/aims.json
