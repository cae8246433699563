#!/usr/bin/env bash
# usage: fuzz/run.sh BUILD_DIR SECONDS
# Replays the corpus of every target in BUILD_DIR (where the fuzz_* programs are), then fuzzes each for SECONDS (0: not at all). One line a
# target. A crash, a leak or a broken promise fails the run; its input is kept in BUILD_DIR/findings.
set -uo pipefail
[ $# -eq 2 ] || { sed -n '2,4s/^# //p' "$0"; exit 2; }
here=$(dirname "$(readlink -f "$0")")
build=$(readlink -f "$1")
seconds=$2
findings=$build/findings
mkdir -p "$findings"
# Nothing is left open at the end but what belongs to the process.
export ASAN_OPTIONS=detect_leaks=1:allocator_may_return_null=1
failed=0

# run TARGET ARGUMENT...: the log goes to BUILD_DIR/TARGET.log; -close_fd_mask silences what the library itself prints.
run() {
    local target=$1
    shift
    "$build/fuzz_$target" -close_fd_mask=3 -artifact_prefix="$findings/$target-" -timeout=20 -rss_limit_mb=2048 "$@" >"$build/$target.log" 2>&1
}

for program in "$build"/fuzz_*; do
    [ -x "$program" ] || continue
    target=$(basename "$program")
    target=${target#fuzz_}
    inputs=$(find "$here/corpus/$target" -type f | wc -l)
    work=$build/corpus/$target
    mkdir -p "$work"
    result="ok, $inputs inputs replayed"
    if ! run "$target" -runs=0 "$here/corpus/$target"; then
        result="FAILED on its corpus, see $build/$target.log"
    elif [ "$seconds" -gt 0 ]; then
        dictionary=()
        [ -f "$here/dictionary/$target.dict" ] && dictionary=(-dict="$here/dictionary/$target.dict")
        if run "$target" -max_total_time="$seconds" -max_len=16384 -print_final_stats=1 "${dictionary[@]}" "$work" "$here/corpus/$target"; then
            result+=", $(sed -n 's/^stat::number_of_executed_units: *//p' "$build/$target.log") runs in $seconds s"
        else
            result="FAILED, see $build/$target.log and $findings"
        fi
    fi
    case $result in FAILED*) failed=1 ;; esac
    printf '%-12s %s\n' "$target" "$result"
done
exit $failed
