#!/usr/bin/env bash
# Builds everything with Debian 13's compiler, warnings being errors, in a root of its own under build/trixie, and runs the
# library's tests there. As root, with mmdebstrap; downloads about 270 MB the first time.
#   scripts/trixie.sh [TARGET...]      targets of the dev preset instead of all
set -euo pipefail
cd "$(dirname "$0")/.."

root=$PWD/build/trixie
[ -d "$root/usr" ] || mmdebstrap --variant=minbase --include=libgtest-dev,libbenchmark-dev trixie "$root"
mkdir -p "$root/src"
find "$root/src" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
git ls-files -z | tar --null --files-from=- --create | tar -C "$root/src" --extract
inside() { unshare --mount --pid --fork --root="$root" --wd=/src --mount-proc "$@"; }
inside scripts/deps.sh build record
inside cmake --preset dev
inside cmake --build --preset dev ${1:+--target "$@"}
[ $# -gt 0 ] || inside build/dev/tests/rtsptap_tests --gtest_brief=1
