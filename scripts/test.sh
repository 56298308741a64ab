#!/usr/bin/env bash
# Builds the presets given (default: dev asan tsan), runs all their tests, and ends with "N passed, N failed".
# A preset that does not build counts as one failure. While the tests of one run, which mostly wait, the next is built.
set -uo pipefail
cd "$(dirname "$0")/.." || exit

[ $# -gt 0 ] || set -- dev asan tsan
passed=0
failed=0

# Reads one number of the <testsuite> element that ctest writes.
count() { sed -n "s/.*<testsuite .*[ \t]$2=\"\([0-9]*\)\".*/\1/p; s/^[ \t]*$2=\"\([0-9]*\)\".*/\1/p" "$1" | head -n 1; }

build() { cmake --preset "$1" && cmake --build --preset "$1"; }

# In the background, behind everything else; what it says is kept for its turn.
builder=
log=$(mktemp)
trap 'rm -f "$log"; [ -z "$builder" ] || kill -- "-$builder" 2>/dev/null' EXIT
build_ahead() {
    renice -n 19 "$BASHPID" >/dev/null
    build "$1"
}

while [ $# -gt 0 ]; do
    preset=$1
    shift
    echo "==== $preset"
    if [ -z "$builder" ]; then
        build "$preset"
        built=$?
    else
        wait "$builder"
        built=$?
        cat "$log"
        builder=
    fi
    if [ $# -gt 0 ]; then
        set -m # a group of its own, so that it can be ended whole
        build_ahead "$1" >"$log" 2>&1 </dev/null &
        set +m
        builder=$!
    fi
    if [ "$built" -ne 0 ]; then
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
