#!/usr/bin/env bash
# Runs tests in the long form that takes minutes; what the library prints meanwhile is left out.
#   scripts/long_form.sh PRESET GTEST_FILTER
set -uo pipefail
cd "$(dirname "$0")/.." || exit
cmake --preset "$1" && cmake --build --preset "$1" --target rtsptap_tests || exit 1
RTSPTAP_LONG=1 "build/$1/tests/rtsptap_tests" --gtest_filter="$2" | grep -aE '^\[|Failure$|^ *Which is|^(loss|seed) '
