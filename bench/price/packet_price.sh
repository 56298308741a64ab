#!/bin/sh
# Counts the instructions that a packet costs and compares them with those written down: more than 3 % above or below
# fails, so that nothing creeps in and nothing saved is lost again. Exit status 77: cannot tell here.
#   packet_price.sh PROGRAM MACHINE COMPILER FIGURES
set -eu
program=$1 figures=$4
skip() { echo "SKIPPED: $1"; exit 77; }

[ -n "$program" ] || skip "this build is instrumented, the price would be that of its instruments"
command -v valgrind >/dev/null || skip "valgrind is not installed: scripts/deps.sh test"
build="$2 $3 $(getconf GNU_LIBC_VERSION | tr ' ' -)"
rows=$(grep "^$build " "$figures") || skip "$figures has no rows for $build"
# The same copying routine on every processor.
export GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX2,-AVX_Fast_Unaligned_Load,-AVX512VL,-ERMS

failed=0
packets=1000
while read -r _ _ _ transport burst figure; do
    profile=$program.$transport.$burst
    log=$(valgrind --tool=callgrind --callgrind-out-file="$profile" --toggle-collect='TakeBurst*' \
        "$program" "$transport" "$burst" $((packets / burst)) 2>&1) || { echo "$log"; exit 1; }
    total=$(echo "$log" | sed -n 's/.*Collected : //p')
    tenths=$((${total:-0} * 10 / packets))
    said="$transport in bursts of $burst: $((tenths / 10)).$((tenths % 10)) instructions a packet, $figure written down"
    if [ $((tenths * 10)) -gt $((figure * 103)) ]; then
        echo "TOO DEAR: $said. Look where they went: callgrind_annotate --auto=yes $profile"
        echo "If they buy something, write the new figure into $figures and say in the commit what."
        failed=1
    elif [ $((tenths * 10)) -lt $((figure * 97)) ]; then
        echo "CHEAPER: $said. Write the new figure into $figures, so that it stays there."
        failed=1
    else
        echo "$said"
    fi
done <<ROWS
$rows
ROWS
exit $failed
