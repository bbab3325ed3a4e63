#!/usr/bin/env bash
# Runs clang-tidy over all sources, without its static analyser, which takes as long as all the rest
# (clang-tidy -p build/dev FILE has it). .clang-tidy names the checks. Usage: check-tidy.sh [BUILD]
set -uo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/dev}

tidy() { # tidy CHECKS PATTERN...: prints findings; fails if there are any
    local checks=$1
    shift
    git ls-files -z "$@" |
        xargs -0 -P "$(nproc)" -n 1 clang-tidy -p "$build" --quiet --checks="$checks" 2>/dev/null
}
tidy '-clang-analyzer-*' 'ContentsMgr/*.cpp' 'Platform/*.cpp' 'Tools/*.cpp'
product=$?
tidy '-clang-analyzer-*,-performance-*' 'Tests/*.cpp'
exit $((product | $?))
