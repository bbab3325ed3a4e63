#!/usr/bin/env bash
# Builds and runs all checks: house rules, then the tests plain, under AddressSanitizer and UBSan,
# and under ThreadSanitizer, then the package on a real kernel in a virtual machine. Ends with a line
# 'N passed, N failed'.
# Usage: test.sh [PRESET...]   (dev asan tsan by default)
set -uo pipefail
cd "$(dirname "$0")/.." || exit 2
scripts/setup.sh test || exit 1

passed=0
failed=0
count() { # count NAME COMMAND...: runs one check
    local name=$1
    shift
    if "$@"; then
        passed=$((passed + 1))
    else
        failed=$((failed + 1))
        echo "test: FAILED: $name" >&2
    fi
}

# ThreadSanitizer does not work with strong address space randomisation: disable it here.
runner=()
setarch "$(uname -m)" -R true 2>/dev/null && runner=(setarch "$(uname -m)" -R)

export ASAN_OPTIONS=verify_asan_link_order=0:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1
export TSAN_OPTIONS=ignore_noninstrumented_modules=1:halt_on_error=0
export GIO_USE_VFS=local

# A clone in another folder may reuse what was compiled in this one.
export CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1

check_format() {
    git ls-files '*.h' '*.cpp' | xargs clang-format --dry-run -Werror
}

# quietly COMMAND...: shows the output only on failure.
quietly() {
    local log
    log=$(mktemp)
    "$@" >"$log" 2>&1
    local status=$?
    [ $status -eq 0 ] || tail -60 "$log"
    rm -f "$log"
    return $status
}

run_preset() {
    local preset=$1 log counts
    log=$(mktemp)
    echo "== $preset"
    if ! { cmake --preset "$preset" >"$log" 2>&1 && cmake --build --preset "$preset" >>"$log" 2>&1; }; then
        tail -60 "$log"
        rm -f "$log"
        failed=$((failed + 1))
        return
    fi
    "${runner[@]}" ctest --preset "$preset" --timeout 300 --output-junit "$PWD/build/$preset/junit.xml" | tee "$log" |
        grep -vE '^ *(Start|[0-9]+/[0-9]+ Test.* Passed)'
    counts=$(grep -oE '[0-9]+ tests failed out of [0-9]+' "$log" | tail -1)
    rm -f "$log"
    if [ -z "$counts" ]; then
        echo "test: $preset ran no test" >&2
        failed=$((failed + 1))
        return
    fi
    local bad all
    bad=${counts%% *}
    all=${counts##* }
    passed=$((passed + all - bad))
    failed=$((failed + bad))
}

# The checks in the virtual machine; skipped if QEMU cannot be installed.
run_machine() {
    local log status counts
    echo "== machine"
    log=$(mktemp)
    scripts/vm-test.sh 2>&1 | tee "$log"
    status=${PIPESTATUS[0]}
    counts=$(grep -oE '^[0-9]+ passed, [0-9]+ failed$' "$log" | tail -1)
    rm -f "$log"
    if [ "$status" -eq 77 ]; then
        echo "test: SKIPPED: the machine" >&2
    elif [ -z "$counts" ]; then
        echo "test: the machine ran no check" >&2
        failed=$((failed + 1))
    else
        passed=$((passed + ${counts%% *}))
        counts=${counts#*, }
        failed=$((failed + ${counts%% *}))
    fi
}

# What we read from real media against exiftool and ffprobe; skipped if they cannot be fetched.
compare_media() {
    quietly scripts/compare-media.sh --quick
    local status=$?
    [ $status -ne 77 ] || echo "test: SKIPPED: the comparison of media" >&2
    [ $status -eq 0 ] || [ $status -eq 77 ]
}

count "formatting" check_format
count "layers" scripts/check-layers.sh
count "the check of the layers" scripts/check-layers-test.sh
count "functions that nobody uses" scripts/check-unused.sh
count "the share of tests" scripts/check-test-share.sh
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(dev asan tsan)
for preset in "${presets[@]}"; do run_preset "$preset"; done
if [ $# -eq 0 ]; then
    count "fuzzing, a few seconds a target" quietly scripts/fuzz.sh 3
    # Only whether they run and have every row: figures measured beside other work say little.
    count "the benchmarks" quietly scripts/bench.sh --quick
    count "real media, compared" compare_media
    # The virtual machine mostly waits.
    tidy=$(mktemp)
    nice scripts/check-tidy.sh >"$tidy" 2>&1 &
    linting=$!
    run_machine
    wait $linting
    clean=$?
    [ $clean -eq 0 ] || cat "$tidy"
    count "clang-tidy" test $clean -eq 0
    rm -f "$tidy"
fi

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
