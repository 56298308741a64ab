#!/usr/bin/env bash
# Builds the presets given (default: dev asan tsan), runs all their tests, and ends with "N passed, N failed".
# A preset that does not build counts as one failure.
set -uo pipefail
cd "$(dirname "$0")/.." || exit

[ $# -gt 0 ] || set -- dev asan tsan
passed=0
failed=0

# Reads one number of the <testsuite> element that ctest writes.
count() { sed -n "s/.*<testsuite .*[ \t]$2=\"\([0-9]*\)\".*/\1/p; s/^[ \t]*$2=\"\([0-9]*\)\".*/\1/p" "$1" | head -n 1; }

for preset in "$@"; do
    echo "==== $preset"
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset"; }; then
        failed=$((failed + 1))
        continue
    fi
    results="$PWD/build/$preset/results.xml"
    rm -f "$results"
    ctest --preset "$preset" --output-junit "$results"
    status=$?
    tests=$(count "$results" tests)
    failures=$(count "$results" failures)
    skipped=$(($(count "$results" skipped) + $(count "$results" disabled)))
    if [ -z "$tests" ] || [ -z "$failures" ]; then
        failed=$((failed + 1))
        continue
    fi
    # ctest can fail without a failing test, as when one was not found.
    [ "$status" -eq 0 ] || [ "$failures" -gt 0 ] || failures=1
    [ "$skipped" -eq 0 ] || echo "$preset: $skipped skipped"
    passed=$((passed + tests - failures - skipped))
    failed=$((failed + failures))
done

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
