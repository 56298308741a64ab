#!/usr/bin/env bash
# Processor time of rtsptap beside FFmpeg and GStreamer on one stream at the same time: about 2200 packets a second
# of L16, which costs its server next to nothing. None of the players decodes.
#   compare_players.sh BUILD_DIRECTORY [SECONDS]
set -euo pipefail
build=${1:?build directory}
seconds=${2:-10}
warm_up=3

exec 3< <(exec "$build/tests/interop/gst_server/rtsptap_gst_server" \
    "audiotestsrc is-live=true ! audio/x-raw,rate=192000,channels=8 ! rtpL16pay name=pay0 pt=96")
children=($!)
trap 'kill "${children[@]}" 2>/dev/null || true' EXIT
read -r -t 30 url <&3

# Clock ticks that a process has used, in itself and in the kernel.
ticks() { sed 's/.*) //' "/proc/$1/stat" | awk '{ print $12 + $13 }'; }

compare() {
    local transport=$1 pids=() before=() name
    local names=(rtsptap ffmpeg gst-launch)
    "$build/tools/rtsptap" play "$url" --transport "$transport" >/dev/null 2>&1 & pids+=($!)
    ffmpeg -nostdin -v quiet -rtsp_transport "$transport" -i "$url" -c copy -f null - & pids+=($!)
    gst-launch-1.0 -q rtspsrc location="$url" protocols="$transport" ! fakesink >/dev/null 2>&1 & pids+=($!)
    children+=("${pids[@]}")
    sleep "$warm_up"
    for pid in "${pids[@]}"; do before+=("$(ticks "$pid")"); done
    sleep "$seconds"
    local own=0 used
    for i in "${!pids[@]}"; do
        used=$(($(ticks "${pids[$i]}") - before[i]))
        name=${names[$i]}
        [ "$own" -gt 0 ] || own=$used
        awk -v t="$transport" -v n="$name" -v used="$used" -v own="$own" -v s="$seconds" -v hz="$(getconf CLK_TCK)" \
            'BEGIN { printf "%-4s %-10s %6.2f %% of a processor, %5.2f times rtsptap\n", t, n, 100 * used / hz / s, own ? used / own : 0 }'
    done
    kill "${pids[@]}" 2>/dev/null || true
    wait "${pids[@]}" 2>/dev/null || true
}

for transport in udp tcp; do compare "$transport"; done
