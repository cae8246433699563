#!/usr/bin/env bash
# Runs every benchmark program and prints the medians of its counters; each ratio's reference was measured in the same run.
# usage: run.sh BUILD_BENCH_DIR [FILTER]
set -euo pipefail
dir=$1 filter=${2:-.}
for program in "$dir"/*Bench; do
    printf '\n== %s\n' "$(basename "$program")"
    "$program" --benchmark_filter="$filter" --benchmark_repetitions="${REPETITIONS:-5}" --benchmark_report_aggregates_only=true \
        --benchmark_counters_tabular=true 2>/dev/null | grep -E '_median|^Benchmark' || true
done
