#!/usr/bin/env bash
# Installs the Debian packages that are missing; does nothing, and needs no rights, when none is.
#   scripts/deps.sh [GROUP...]      groups: build record test (default: these), fuzz memcheck coverage style
# build is enough for the library, the demo and the tool without recordings.
set -euo pipefail

declare -A packages=(
    [build]="g++ cmake ninja-build pkg-config libssl-dev libsrtp2-dev libcli11-dev nlohmann-json3-dev libpcap-dev"
    [record]="libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base gstreamer1.0-plugins-good
              gstreamer1.0-plugins-bad gstreamer1.0-libav"
    [test]="libgtest-dev libbenchmark-dev ffmpeg groff-base libglib2.0-dev libuv1-dev libgstrtspserver-1.0-dev
            gstreamer1.0-plugins-ugly
            gstreamer1.0-tools gstreamer1.0-x iproute2 python3 tshark valgrind"
    [fuzz]="clang-14 libclang-rt-14-dev"
    [memcheck]="valgrind libgtest-dev"
    [coverage]="gcovr libgtest-dev"
    [style]="clang-format-14 clang-tidy-14 git shellcheck"
)

[ $# -gt 0 ] || set -- build record test
missing=()
for group in "$@"; do
    for package in ${packages[$group]}; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q ' installed$' || missing+=("$package")
    done
done
[ ${#missing[@]} -gt 0 ] || exit 0

echo "installing: ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "root or sudo is needed to install them" >&2; exit 1; }
    as_root=(sudo)
fi
"${as_root[@]}" apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}" </dev/null
