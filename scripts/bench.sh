#!/usr/bin/env bash
# Measures the service against its performance targets and prints one table.
# Usage: bench.sh [--quick|--cold]
# Creates what it needs: libraries of real media files (kept below build/) and databases (deleted
# afterwards). --cold, for root: also measures first scans with a cold cache, for which the machine's
# caches are dropped.
set -euo pipefail
cd "$(dirname "$0")/.."
quick='' cold=''
case ${1:-} in
'') ;;
--quick) quick=1 ;;
--cold) cold=1 ;;
*)
    echo "usage: bench.sh [--quick|--cold]" >&2
    exit 2
    ;;
esac

build=${CM_BUILD:-build/release}
if [ "$build" = build/release ]; then cmake --preset release; else cmake "$build" -DCM_BENCHMARKS=ON; fi >/dev/null
programs=(MediaDatabase MediaScan CommandRoundTrip ServiceRows)
cmake --build "$build" --target "${programs[@]}" make-sample-media contents-mgr-extract >/dev/null

files=20000 items=1000000 rounds=5 database=()
[ -z "$quick" ] || files=400 items=20000 rounds=3 database=(--benchmark_min_time=0.02)
library() { # library KIND: the folder with $files such files, created if missing
    local folder=$build/bench-$1-$files
    if [ ! -d "$folder" ]; then
        rm -rf "$folder.part"
        "$build/bin/make-sample-media" "--$1" "$folder.part" "$files"
        mv "$folder.part" "$folder"
    fi
    echo "$folder"
}

out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
failed= runs=0
run() { # run PROGRAM ARG...: shows and keeps its output
    local kept
    runs=$((runs + 1))
    kept=$out/$runs
    echo "== $*"
    "$build/Benchmarks/$1" "${@:2}" 2>&1 | tee "$kept" || failed=1
}
run MediaDatabase --items="$items" "${database[@]}"
run MediaScan "$(library camera)" "$rounds"
run MediaScan "$(library large)" "$rounds"
if [ -n "$cold" ]; then
    run MediaScan "$(library camera)" 3 cold
    run MediaScan "$(library large)" 3 cold
fi
run CommandRoundTrip ${quick:+--quick}
run ServiceRows ${quick:+--quick}

# Rows come in three forms: tab-separated after ROW; "WHAT A ms B ms RATIO aim X met"; and the round
# trip's three lines.
echo
printf '%-62s %14s %14s %7s  %-16s %s\n' "what" "ours" "other" "ratio" "aim" ""
cat "$out"/* | sed "s/1,000,000/$items/" | awk -F'\t' -v items="$items" '
    function row(what, a, b, ratio, aim, met) {
        printf "%-62s %14s %14s %7s  %-16s %s\n", what, a, b, ratio, aim, met
        rows++
        if (met != "met") missed++
    }
    $1 == "ROW" { row($2, $3, $4, $5, $6, $7); next }
    match($0, / +[0-9.]+ ms +[0-9.]+ ms +[0-9.]+ +aim [0-9.]+ +(met|NOT MET)$/) {
        what = substr($0, 1, RSTART - 1)
        n = split(substr($0, RSTART), f, " ")
        row(what, f[1] " ms", f[3] " ms", f[5], "at most " f[7], n > 8 ? "NOT MET" : "met")
        if (what ~ /^count/)
            row("count of one kind, " items " items", f[1] " ms", "-", "-", "at most 1 ms", f[1] <= 1 ? "met" : "NOT MET")
        next
    }
    /^command over the host/ { ours = $0; gsub(/[^0-9.]/, "", ours) }
    /^echo method/ { echo = $0; gsub(/[^0-9.]/, "", echo) }
    /^ratio .*aim/ {
        row("one command over D-Bus against an echo method", ours " us", echo " us",
            sprintf("%.2f", ours / echo), "at most 1.3", ours / echo <= 1.3 ? "met" : "NOT MET")
    }
    END {
        printf "%d rows, %d missed\n", rows, missed
        exit rows < 9
    }' || failed=1
[ -z "$failed" ] || {
    echo "bench: a program failed, or rows are missing" >&2
    exit 1
}
