#!/bin/sh
# Installs the build into a scratch prefix and builds two consumers against
# it: a C99 program through pkg-config, and a CMake project through
# find_package(LumBase). Both run and must print the expected texts.
set -eu
build="$1"; src="$2"; cc="$3"; toolchain="${5:-}"
# CMake hands the emulator over as a list: "qemu-arm;-L;/usr/arm-linux-gnueabihf".
emulator=$(printf '%s' "${4:-}" | tr ';' ' ')
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$(ls -d "$prefix"/lib*/pkgconfig | head -n 1 | xargs dirname)
export PKG_CONFIG_PATH="$libdir/pkgconfig"
export PKG_CONFIG_SYSROOT_DIR=
test -f "$prefix/include/LumBase.h"
test -f "$prefix/include/LumBase/LUMInternal.h"
test -e "$libdir/libLumBase.so"

# shellcheck disable=SC2046
"$cc" -std=c99 -Wall -Wextra -Werror -o "$work/capi" "$src/c/capi.c" $(pkg-config --cflags --libs lumbase)
LD_LIBRARY_PATH="$libdir" $emulator "$work/capi" > "$work/out.txt"
grep -q 'all C API checks passed' "$work/out.txt"

mkdir "$work/consumer"
cat > "$work/consumer/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.20)
project(consumer C)
find_package(LumBase REQUIRED)
add_executable(consumer capi.c)
target_link_libraries(consumer PRIVATE LumBase::LumBase)
CMAKE
cp "$src/c/capi.c" "$work/consumer/capi.c"
# The package is found through the prefix alone, as a user would give it;
# a cross build uses the toolchain file installed with the package.
set --
[ -n "$toolchain" ] && set -- "-DCMAKE_TOOLCHAIN_FILE=$libdir/cmake/LumBase/$(basename "$toolchain")"
cmake -S "$work/consumer" -B "$work/consumer/build" -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" "$@" >/dev/null
cmake --build "$work/consumer/build" >/dev/null
LD_LIBRARY_PATH="$libdir" $emulator "$work/consumer/build/consumer" | grep -q 'all C API checks passed'
# Installed examples find the library beside them without LD_LIBRARY_PATH.
if [ -x "$prefix/libexec/lumbase/demo" ]; then
  env -u LD_LIBRARY_PATH $emulator "$prefix/libexec/lumbase/demo" | grep -q 'Goodbye from LumBase'
fi
echo "installed tree works through pkg-config, find_package by prefix, and installed examples"
