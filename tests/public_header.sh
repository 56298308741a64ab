#!/bin/sh
# Each public header compiles alone as C99 and as C++20 and explains every function; the shared library exports
# exactly the functions that they declare, imports the host's digest functions, and needs nothing beyond the C and
# C++ run-time libraries.
# Usage: public_header.sh CC CXX NM INCLUDE_DIRECTORY SHARED_LIBRARY
set -u
cc=$1 cxx=$2 nm=$3 include=$4 library=$5
failures=0
fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

set -- -pedantic -Wall -Wextra -Werror
for header in "$include"/*.h; do
    "$cc" -x c -std=c99 "$@" -fsyntax-only "$header" || fail "$header is not C99"
    "$cxx" -x c++ -std=c++20 "$@" -fsyntax-only "$header" || fail "$header is not C++20"
    undocumented=$(awk '/^RTSPTAP_API/ && previous !~ /\*\/$/ { print } { previous = $0 }' "$header")
    [ -z "$undocumented" ] || fail "no manual entry: $undocumented"
done

# A declaration begins with the export mark; its name stands before the first parenthesis that follows.
declared=$("$cc" -x c -E -P "$include/rtsptap_frames.h" | tr '\n' ' ' |
    sed 's/__attribute__ *((visibility("default")))/\n@/g' |
    sed -n 's/^@[^(]*[ *]\([A-Za-z0-9_]*\)(.*/\1/p' | sort -u)
exported=$("$nm" -D --defined-only "$library" | awk '{ print $NF }' | sort -u)
alone=$(printf '%s\n' "$declared" "$exported" | sort | uniq -u)
if [ -z "$declared" ] || [ -n "$alone" ]; then fail "only declared, or only exported: $alone"; fi

"$nm" -D --undefined-only "$library" | grep -qw GenerateDigestResponse || fail "GenerateDigestResponse is not imported"
"$nm" -D --undefined-only "$library" | grep -q 'w RTSPTapComputeDigest$' || fail "RTSPTapComputeDigest is not weak"
"$nm" -D --undefined-only "$library" | grep 'N7rtsptap' && fail "functions of the library itself are missing"
for needed in $(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
    case $needed in
        libc.so.* | libm.so.* | libstdc++.so.* | libgcc_s.so.* | ld-linux* | lib?san.so.* | libubsan.so.*) ;;
        *) fail "needs $needed" ;;
    esac
done
exit "$failures"
