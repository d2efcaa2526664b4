#!/usr/bin/env bash
# Installs the built library into a temporary prefix and builds hosts against what was installed,
# and nothing else: the examples through find_package(zul 1.1) and through pkg-config, each run
# on a file of its own. Also: the soname, every installed header compiling on its own (zul.h as
# C99 too), every header of an exported class installed and usable, and the version rule of the
# package.
# usage: install_test.sh <source root> <build dir> <C compiler> <C++ compiler> [compile flags]
set -euo pipefail
source_root=$1 build=$2 cc=$3 cxx=$4 flags=${5:-}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
fail() { echo "install test: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null
library=$(find "$prefix" -name libzul.so.1.1.0)
[ -n "$library" ] || fail "libzul.so.1.1.0 is not installed"
libdir=$(dirname "$library")
[ "$(readlink "$libdir/libzul.so.1")" = libzul.so.1.1.0 ] || fail "libzul.so.1 does not link to 1.1.0"
[ "$(readlink "$libdir/libzul.so")" = libzul.so.1 ] || fail "libzul.so does not link to libzul.so.1"
readelf -d "$library" | grep -q 'SONAME.*\[libzul\.so\.1\]' || fail "the soname is not libzul.so.1"
# The tool loads its coordinate system module from bin/../lib.
if [ -x "$prefix/bin/zul" ]; then
    [ -f "$libdir/libzul_crs.so" ] || fail "libzul_crs.so is not installed beside libzul"
fi
for file in include/zul.h include/zul_bulk.h include/zul.hpp; do
    [ -f "$prefix/$file" ] || fail "$file is not installed"
done

# Headers: each on its own, with the prefix as the only include path and the warnings a strict
# host turns on.
for header in $(cd "$source_root/src" && grep -l ZUL_API ./*/*.h | sed 's|^\./||'); do
    [ -f "$prefix/include/zul/$header" ] || fail "zul/$header declares an exported class but is not installed"
done
for header in zul.h zul_bulk.h; do
    echo "#include <$header>" | "$cc" -std=c99 -pedantic-errors -Wall -Wextra -Werror -fsyntax-only \
        -I"$prefix/include" -x c - || fail "$header does not compile as C99"
done
for header in $(cd "$prefix/include" && find . -name '*.h' -o -name '*.hpp' | sed 's|^\./||' | sort); do
    echo "#include <$header>" | "$cxx" -std=c++17 -pedantic-errors -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Werror \
        -fsyntax-only -I"$prefix/include" -x c++ - || fail "$header does not compile on its own"
done

# find_package: the examples as a project of their own.
cmake -S "$source_root/examples" -B "$work/examples" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_FLAGS="$flags" \
    -DCMAKE_CXX_FLAGS="$flags" >/dev/null || fail "the examples do not configure with find_package"
cmake --build "$work/examples" -j2 >/dev/null || fail "the examples do not build with find_package"
mkdir "$work/run" && cd "$work/run"
"$work/examples/write_and_read_c" c.zul
"$work/examples/write_and_read_cpp" cpp.zul
"$work/examples/encode_cloud" sphere.zul --sensor >/dev/null && "$work/examples/decode_cloud" sphere.zul >/dev/null ||
    fail "encode_cloud and decode_cloud, built with find_package, failed"
# The tool, when it is built, finds the library beside it without help.
if [ -e "$prefix/bin/zul" ]; then
    "$prefix/bin/zul" info c.zul >/dev/null || fail "the installed zul tool does not run"
fi

# The version rule: any 1.x from 1.1 on.
mkdir "$work/version"
echo 'cmake_minimum_required(VERSION 3.25)
project(version_check NONE)
find_package(zul ${WANTED} REQUIRED)' >"$work/version/CMakeLists.txt"
for wanted in 1 1.0 1.1 1.1.0; do
    cmake -S "$work/version" -B "$work/version/build-$wanted" -DWANTED=$wanted \
        -DCMAKE_PREFIX_PATH="$prefix" >/dev/null || fail "find_package(zul $wanted) fails"
done
for wanted in 1.2 2.0 0.9; do
    if cmake -S "$work/version" -B "$work/version/build-$wanted" -DWANTED=$wanted \
        -DCMAKE_PREFIX_PATH="$prefix" >/dev/null 2>&1; then
        fail "find_package(zul $wanted) accepts version 1.1.0"
    fi
done

# pkg-config: the same hosts compiled by hand, and a C++ host of the exported classes.
export PKG_CONFIG_PATH="$libdir/pkgconfig"
[ "$(pkg-config --modversion zul)" = 1.1.0 ] || fail "zul.pc does not give version 1.1.0"
read -r -a cflags <<<"$(pkg-config --cflags zul)"
read -r -a libs <<<"$(pkg-config --libs zul)"
read -r -a extra <<<"$flags"
"$cc" -std=c99 "${extra[@]}" "${cflags[@]}" "$source_root/examples/write_and_read.c" \
    "${libs[@]}" -lm -o "$work/c_host" || fail "the C host does not build with pkg-config"
"$cxx" -std=c++17 "${extra[@]}" "${cflags[@]}" "$source_root/examples/write_and_read.cpp" \
    "${libs[@]}" -o "$work/cpp_host" || fail "the C++ host does not build with pkg-config"
cat >"$work/classes.cpp" <<'HOST'
#include <zul/entropy/bit_stream_out.h>
#include <zul/frame/data_type.h>
#include <zul/frame/header2.h>
#include <zul.h>

#include <vector>

int main() {
    zul_DataType dataType;
    zullib::DataType::init(dataType, 0.001f, zul_COLOR_RGB888, zul_REFLECTION_CLAMPED, 255,
                           zul_NORMAL_SPHERICAL);
    zul_Header2 header = zullib::Header2::disabled();
    zullib::Header2::setScaling(header, 2.0);
    header.enabled = true;
    std::vector<unsigned char> bytes;
    zullib::BitStreamOut bits(bytes, 0);
    bits.writeBits(5, 3);
    const bool ok = zullib::DataType::isValid(dataType) &&
                    zullib::DataType::getChunkHeaderSize(dataType) == 68 &&
                    zullib::Header2::isValid(header, true) && !bytes.empty() && (bytes[0] & 7) == 5;
    return ok ? 0 : 1;
}
HOST
"$cxx" -std=c++17 "${extra[@]}" "${cflags[@]}" "$work/classes.cpp" "${libs[@]}" -o "$work/classes_host" ||
    fail "a host of the exported classes does not build with pkg-config"
export LD_LIBRARY_PATH="$libdir"
"$work/c_host" c2.zul
"$work/cpp_host" cpp2.zul
"$work/classes_host" || fail "the exported classes do not work from an installed host"
echo "install test: passed in $prefix"
