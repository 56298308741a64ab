#!/bin/sh
# Folders include one way: rtsp/client -> rtsp/message and sdp -> rtp -> dialect -> platform, and those of the tool as below.
# Programs see nothing but the public header.
# Usage: include_graph.sh SOURCE_DIRECTORY
cd "$1" || exit 2
set -- platform dialect rtp sdp rtsp digest tls srtp
for folder in tools examples; do
    [ -d "$folder" ] && set -- "$@" "$folder"
done
grep -rn --include='*.h' --include='*.cpp' --include='*.c' '^#include "' "$@" | awk -F'[:"]' '
BEGIN {
    split("base/ 1 session/ 2 reception/ 3 media/ 4 views/ 5 cli/ 6 commands/ 7 " \
          "platform/ 11 dialect/ 12 rtp/ 13 sdp/ 14 rtsp/message/ 14 rtsp/client/ 15", rooms, " ")
}
function height(path,    i) { # 0: in none of these
    sub(/^tools\/rtsptap\//, "", path)
    for (i = 1; i in rooms; i += 2)
        if (index(path, rooms[i]) == 1) return rooms[i + 1] + 0
    return path ~ /^main/ ? 10 : 0
}
# fields: file, line, "#include ", the included path
++lines && height($4) > height($1) {
    print $1 ":" $2 ": must not include " $4
    failures++
}
END {
    if (lines == 0) print "no include line found"
    exit failures > 0 || lines == 0
}'
