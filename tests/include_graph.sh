#!/bin/sh
# Folders include one way: rtsp/client -> rtsp/message and sdp -> rtp -> platform. Programs see nothing but the public
# header.
# Usage: include_graph.sh SOURCE_DIRECTORY
cd "$1" || exit 2
set -- platform rtp sdp rtsp digest
for folder in tools examples; do
    [ -d "$folder" ] && set -- "$@" "$folder"
done
grep -rn --include='*.h' --include='*.cpp' --include='*.c' '^#include "' "$@" | awk -F'[:"]' '
function height(path) {
    if (path ~ /^platform\//) return 1
    if (path ~ /^rtp\//) return 2
    if (path ~ /^sdp\// || path ~ /^rtsp\/message\//) return 3
    if (path ~ /^rtsp\/client\//) return 4
    return 0
}
function toolHeight(path) {
    sub(/^tools\/rtsptap\//, "", path)
    return index(" base session reception media views cli commands", " " substr(path, 1, index(path, "/") - 1))
}
{
    lines++
    if ($1 ~ /^tools\/rtsptap\/.*\// && toolHeight($4) > toolHeight($1)) {
        print $1 ":" $2 ": must not include " $4
        failures++
    }
    # fields: file, line, "#include ", the included path
    if (height($4) > height($1)) {
        print $1 ":" $2 ": must not include " $4
        failures++
    }
}
END {
    if (lines == 0) print "no include line found"
    exit failures > 0 || lines == 0
}'
