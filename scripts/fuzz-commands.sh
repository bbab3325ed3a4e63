#!/usr/bin/env bash
# Sends random commands to the real service and checks whether it crashed, hung or grew.
# Usage: fuzz-commands.sh [COUNT] [SEED]   (1000000, a random one)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${CM_BUILD:-build/dev}
[ -f "$build/build.ninja" ] ||
    cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$build" --target command-fuzz >/dev/null
words=(--count "${1:-1000000}" --samples "$PWD/$build/Tests/Endurance/soak-samples")
[ $# -lt 2 ] || words+=(--seed "$2")
exec "$build/Tests/Endurance/command-fuzz" "${words[@]}"
