#!/usr/bin/env bash
# Builds the fuzz targets and runs each for a while from its seeds, two at a time; targets that read
# whole files start from freshly made sample media. Ends with a line 'N passed, N failed'; inputs that
# broke a target are kept in build/fuzz/findings.
# Usage: fuzz.sh [SECONDS]   (60 for each target by default)
set -uo pipefail
cd "$(dirname "$0")/.." || exit 2
seconds=${1:-60}
[[ $seconds =~ ^[1-9][0-9]*$ ]] || { echo "usage: fuzz.sh [SECONDS]" >&2; exit 2; }

cmake --preset fuzz >/dev/null && cmake --build build/fuzz --target fuzz-targets || exit 1

findings=build/fuzz/findings
mkdir -p "$findings"
corpora=$(mktemp -d)
trap 'rm -rf "$corpora"' EXIT

# Allocations that the helper's memory limit refuses to the libraries are refused here as well.
export ASAN_OPTIONS=allocator_may_return_null=1:max_allocation_size_mb=512

run_target() { # run_target NAME: new inputs go to a separate corpus; the seeds are unchanged
    local name=$1 log="$corpora/$1.log" seeds=("Fuzz/seeds/$1") length=8192
    case $name in
        picture) seeds=("$corpora"/samples/{Photos,World}) length=65536 ;;
        audio) seeds=("$corpora"/samples/{Music,World}) length=65536 ;;
        video) seeds=("$corpora"/samples/{Videos,World}) length=65536 ;;
    esac
    mkdir "$corpora/$name"
    if build/fuzz/fuzz/"fuzz-$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=1024 \
        -max_len="$length" -print_final_stats=1 -artifact_prefix="$findings/$name-" \
        "$corpora/$name" "${seeds[@]}" >"$log" 2>&1; then
        echo "fuzz: $name: $(sed -n 's/^stat::number_of_executed_units: *//p' "$log") inputs"
        return 0
    fi
    tail -40 "$log"
    echo "fuzz: FAILED: $name" >&2
    return 1
}
export -f run_target
export seconds corpora findings

build/fuzz/bin/make-sample-media --small "$corpora/samples" || exit 1

passed=0
failed=0
while read -r status; do
    if [ "$status" = ok ]; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
done < <({ ls Fuzz/seeds; printf '%s\n' picture audio video; } | xargs -P 2 -I{} bash -c 'run_target {} >&2 && echo ok || echo failed')

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
