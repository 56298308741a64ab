#!/usr/bin/env bash
# Plays the bundled demo server, which asks for digest authentication, over UDP and then over TCP. Succeeds only
# when both streams delivered both times.
#   run_demo.sh BUILD_DIRECTORY
set -uo pipefail
build=${1:?build directory}

export RTSPTAP_PASSWORD=a-running-clock
exec 3< <(exec "$build/tools/rtsptap_demo_server" --auth "viewer:$RTSPTAP_PASSWORD")
server=$!
trap 'kill "$server" 2>/dev/null' EXIT
if ! read -r -t 30 url <&3; then
    echo "the demo server did not start" >&2
    exit 1
fi

status=0
for transport in udp tcp; do
    printf '\n%s over %s\n' "$url" "$transport"
    "$build/tools/rtsptap" play "$url" -u viewer --transport "$transport" --duration 5s || status=$?
done
exit "$status"
