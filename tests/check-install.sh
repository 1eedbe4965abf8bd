#!/bin/sh
# Installs the build into a scratch prefix (or takes an installed tree) and
# builds three consumers against it: a C99 program and a C++17 program (the
# C++ layer) through pkg-config, and a CMake project through
# find_package(LumBase). All run and must print the expected texts.
set -eu
build="$1"; src="$2"; cc="$3"; toolchain="${5:-}"; cxx="${6:-}"
# CMake hands the emulator over as a list: "qemu-arm;-L;/usr/arm-linux-gnueabihf".
emulator=$(printf '%s' "${4:-}" | tr ';' ' ')
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

# LUM_INSTALLED_PREFIX: check a tree installed otherwise (say, unpacked
# from the Debian packages) instead of installing the build.
if [ -n "${LUM_INSTALLED_PREFIX:-}" ]; then
  prefix="$LUM_INSTALLED_PREFIX"
else
  cmake --install "$build" --prefix "$prefix" >/dev/null
fi
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

if [ -n "$cxx" ]; then
  test -f "$prefix/include/LumBase.hpp"
  cat > "$work/layer.cpp" <<'CPP'
#include <LumBase.hpp>
#include <cstdio>
int main(int argc, char **argv)
{
    LUMInitialize(argc, argv);
    auto read = lum::readJSON(R"({"layer": ["C++", 17]})");
    std::printf("%s\n", read ? lum::writeJSON(read.value).value.c_str() : read.message().c_str());
    return 0;
}
CPP
  # shellcheck disable=SC2046
  "$cxx" -std=c++17 -fno-exceptions -fno-rtti -Wall -Wextra -Werror -o "$work/layer" "$work/layer.cpp" $(pkg-config --cflags --libs lumbase)
  LD_LIBRARY_PATH="$libdir" $emulator "$work/layer" | grep -qx '{"layer":\["C++",17\]}'
fi

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
echo "installed tree works through pkg-config (C and C++), find_package by prefix, and installed examples"
