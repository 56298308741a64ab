#!/bin/sh
# What others build on: the library as a part of their project, installed, by pkg-config, and inside a plug-in.
# Usage: packaging.sh CMAKE CC SOURCE_DIRECTORY BUILD_DIRECTORY      the latter has been built
set -eu
cmake=$1 cc=$2 source=$3 build=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
fail() {
    echo "FAILED: $*"
    exit 1
}
guest() { # DIRECTORY ARGUMENT...
    guest=$1
    shift
    "$cmake" -S "$source/tests/packaging" -B "$guest" -G Ninja -DCMAKE_INSTALL_PREFIX="$work/usr" \
        -DRTSPTAP_DIGEST=OFF "$@" >log 2>&1 || { cat log; fail "configuring $guest"; }
}
built_guest_runs() {
    guest "$@"
    "$cmake" --build "$1" >log 2>&1 || { cat log; fail "building $1"; }
    "$1/guest" || fail "$1 ends with $?"
}
by_pkg_config() { # PC_DIRECTORY ARGUMENT...
    pc=$1
    shift
    # shellcheck disable=SC2046 # the flags are words of their own
    "$cc" "$@" -o program -static $(PKG_CONFIG_PATH=$pc pkg-config --static --cflags --libs rtsptap) ||
        fail "linking by $pc"
}

# In the tree. The library is built once, without optimisation.
guest quiet -DRTSPTAP_SOURCE="$source" -DRTSPTAP_TARGET=rtsptap::rtsptap
"$cmake" --install quiet >log
[ ! -e usr ] || fail "installed unasked: $(find usr)"
CXXFLAGS="-O0 -DFROM_ENVIRONMENT" built_guest_runs part -DRTSPTAP_SOURCE="$source" -DRTSPTAP_TARGET=rtsptap::rtsptap_static \
    -DRTSPTAP_INSTALL=ON -DBUILD_SHARED_LIBS=OFF -DCMAKE_INSTALL_LIBDIR="$work/away"
grep -q -e -DFROM_ENVIRONMENT part/build.ninja || fail "CXXFLAGS are lost"
! grep -e -Werror part/build.ninja || fail "warnings are errors in a part of another project"

# Installed, the archive alone, in a folder of its own.
"$cmake" --install part >log
[ -z "$(find . -name 'librtsptap.so*')" ] || fail "BUILD_SHARED_LIBS=OFF made a shared library"
[ -e usr/share/doc/rtsptap/LICENSE ] || fail "no license among $(find usr)"
! grep -e digest -e crypto away/pkgconfig/rtsptap.pc || fail "names an archive that was not asked for"
for target in rtsptap::rtsptap_static rtsptap::rtsptap; do
    rm -rf other
    built_guest_runs other -Drtsptap_DIR="$work/away/cmake/rtsptap" -DRTSPTAP_TARGET=$target
done
by_pkg_config away/pkgconfig "$source/tests/c_host.c"
./program || fail "a static program ends with $?"

# A plug-in shows nothing of the archive in it, nor its own functions under names of ours.
"$cc" -shared -fPIC -I usr/include -Dmain=enter "$source/tests/c_host.c" -o plugin.so -Wl,--whole-archive away/librtsptap.a \
    -Wl,--no-whole-archive -lstdc++
shown=$(nm -D --defined-only plugin.so | awk '$3 !~ /^_ZZ?N?K?St/ { print $3 }' | sort | xargs)
[ "$shown" = "GenerateDigestResponse enter" ] || fail "a plug-in shows $shown"

# Installed as a whole, with the digest archive, and gone again.
"$cmake" --install "$build" --prefix "$work/whole" >log || { cat log; fail "installing $build"; }
by_pkg_config "$(dirname "$(find whole -name rtsptap.pc)")" "$source/examples/count_packets.c"
for digest in digest digest_shared; do
    rm -rf other
    built_guest_runs other -DCMAKE_PREFIX_PATH="$work/whole" -DRTSPTAP_TARGET=rtsptap::rtsptap\;rtsptap::$digest
done
pc=$(dirname "$(find whole -name rtsptap-digest.pc)")
# shellcheck disable=SC2046 # the flags are words of their own
"$cc" "$source/examples/count_packets.c" -o program $(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs rtsptap-digest) ||
    fail "linking with the shared digests"
LD_LIBRARY_PATH=$(dirname "$pc") ldd program | grep -q 'librtsptap_digest.so.*=> .*/' || fail "the digests are not found"
for beside in tls srtp; do
    [ -e "$pc/rtsptap-$beside.pc" ] || continue
    rm -rf other
    built_guest_runs other -DCMAKE_PREFIX_PATH="$work/whole" -DRTSPTAP_TARGET=rtsptap::rtsptap\;rtsptap::"$beside"
    case $beside in tls) call='RTSPTapUseTls(0, 0)' ;; *) call='RTSPTapUseSrtp(0)' ;; esac
    printf '#include "rtsptap_%s.h"\nint main(void) { return %s != RTSP_INVALID_ARGUMENT; }\n' "$beside" "$call" >call.c
    # shellcheck disable=SC2046 # in C alone: the archive needs no C++ library
    "$cc" call.c -o program $(PKG_CONFIG_PATH=$pc pkg-config --cflags --libs "rtsptap-$beside" rtsptap-digest) ||
        fail "linking with $beside"
    LD_LIBRARY_PATH=$pc/.. ./program || fail "a program with $beside ends with $?"
done
(cd "$build" && "$cmake" --build . --target uninstall) >log
[ -z "$(find whole -type f -o -type l)" ] || fail "left behind: $(find whole -type f)"
