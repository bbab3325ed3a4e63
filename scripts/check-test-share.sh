#!/usr/bin/env bash
# Limits the tests to a third of the code, in lines of .h, .cpp, .py and .sh files without blank
# lines and comments: files under Tests/ and Fuzz/ are tests, all others are product.
# Usage: check-test-share.sh [-v]   (-v: also prints a line for each folder of tests)
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files '*.h' '*.cpp' '*.py' '*.sh' | python3 -c '
import collections, re, sys

LIMIT = 33.0
STRINGS = r"R\"(\w*)\(.*?\)\1\"|\"(?:\\.|[^\"\\\n])*\"|\x27(?:\\.|[^\x27\\\n])\x27"

def code_lines(path):
    text = open(path, encoding="utf-8", errors="replace").read()
    if path.endswith((".h", ".cpp")):
        # A comment inside a string is none: strings are matched first and kept.
        text = re.sub(STRINGS + r"|//[^\n]*|/\*.*?\*/",
                      lambda m: "\n" if m[0][:2] in ("//", "/*") else m[0], text, flags=re.S)
        return sum(1 for line in text.splitlines() if line.strip())
    return sum(1 for line in text.splitlines() if line.strip() and not line.strip().startswith("#"))

product, folders = 0, collections.Counter()
for path in sys.stdin.read().split():
    if path.startswith(("Tests/", "Fuzz/")):
        parts = path.split("/")[:-1]
        folders["/".join(parts[:3] if parts[1:2] == ["Platform"] else parts[:2])] += code_lines(path)
    else:
        product += code_lines(path)
tests = sum(folders.values())
share = 100.0 * tests / (tests + product)
if sys.argv[1:] == ["-v"]:
    for folder, lines in sorted(folders.items()):
        print(f"{lines:6} {folder}")
print(f"product {product} lines, tests {tests} lines: {share:.1f}% are tests (at most {LIMIT:.0f}%)")
sys.exit(share > LIMIT)
' "$@"
