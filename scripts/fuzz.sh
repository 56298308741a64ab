#!/usr/bin/env bash
# Fuzzes the targets named (default: all) one after the other, each on a scratch copy of its corpus until it has had
# RUNS executions or SECONDS seconds, whichever comes first. Fails on any finding, which is kept in build/fuzz/findings.
#   scripts/fuzz.sh RUNS SECONDS SEED [TARGET...]      the targets have been built (cmake --build --preset fuzz)
set -uo pipefail
cd "$(dirname "$0")/.." || exit

runs=$1 seconds=$2 seed=$3
shift 3
declare -A longest=([rtcp]=96 [challenge]=512 [codec_config]=512 [header_list]=512 [api_calls]=600 [rtp_packet]=512
                    [exchange]=2048 [frames]=2048 [sdp]=2048 [srtp]=600 [stream_config]=1024 [url]=600 [interleaved]=4096) # bytes of an input
[ $# -gt 0 ] || set -- "${!longest[@]}"
work=build/fuzz
mkdir -p $work/findings
failed=0
echo "seed $seed, up to $runs executions or $seconds seconds each"
printf '%-14s %12s %8s\n' target executions seconds
for target in "$@"; do
    scratch=$work/corpus/$target
    rm -rf "$scratch"
    mkdir -p $work/corpus
    cp -r "fuzz/corpus/$target" "$scratch"
    begin=$(date +%s)
    "$work/fuzz/${target}_fuzz" -seed="$seed" -runs="$runs" -max_total_time="$seconds" -max_len="${longest[$target]}" \
        -reload=0 -timeout=25 -print_final_stats=1 -artifact_prefix="$work/findings/$target-" "$scratch" >"$scratch.log" 2>&1
    status=$?
    executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$scratch.log")
    printf '%-14s %12s %8s\n' "$target" "${executions:--}" $(($(date +%s) - begin))
    [ "$status" -eq 0 ] && continue
    failed=$((failed + 1))
    echo "$target: status $status, end of $scratch.log:"
    tail -n 40 "$scratch.log"
done
[ "$failed" -eq 0 ]
