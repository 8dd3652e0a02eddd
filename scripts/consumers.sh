#!/usr/bin/env bash
# CI leg: builds the library, installs it into a temporary prefix, then builds
# and runs two small programs against the installed tree only: one through
# CMake's find_package, one through pkg-config and the plain C compiler. The
# CMake one is also built with the source tree added as a subdirectory.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh build
build=build/consumers
prefix=$(mktemp -d /tmp/velomar-prefix.XXXXXX)
trap 'rm -rf "$prefix"' EXIT

cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DVELOMAR_TESTS=OFF -DVELOMAR_HOST=OFF > /dev/null
cmake --build $build -j "${JOBS:-2}"
cmake --install $build --prefix "$prefix" > /dev/null

# Exactly the library, its links, the header and the package files.
lib=$(cd "$prefix" && ls -d lib*/libvelomar.so.0 | head -1)
libdir=$(dirname "$lib")
[ "$(objdump -p "$prefix/$lib" | awk '/SONAME/ {print $2}')" = libvelomar.so.0 ] ||
  { echo "FAIL: $lib lacks the SONAME libvelomar.so.0"; exit 1; }
installed=$(cd "$prefix" && find . -type f -o -type l | sort)
expected=$(printf '%s\n' ./include/velomar.h ./$libdir/libvelomar.so ./$libdir/libvelomar.so.0 \
  ./$libdir/libvelomar.so.0.1.0 ./$libdir/pkgconfig/velomar.pc ./$libdir/cmake/velomar/velomarConfig.cmake \
  ./$libdir/cmake/velomar/velomarConfigVersion.cmake ./$libdir/cmake/velomar/velomarTargets.cmake \
  ./$libdir/cmake/velomar/velomarTargets-release.cmake | sort)
[ "$installed" = "$expected" ] ||
  { echo "FAIL: installed files differ:"; diff <(echo "$expected") <(echo "$installed"); exit 1; }
bash scripts/check-linux-exports.sh "$prefix/$lib"

# find_package.
cmake -S consumers/cmake -B $build/cmake-consumer -G Ninja -DCMAKE_PREFIX_PATH="$prefix" > /dev/null
cmake --build $build/cmake-consumer > /dev/null
$build/cmake-consumer/consumer

# The same program with the source tree taken in by add_subdirectory.
cmake -S consumers/cmake -B $build/subdir-consumer -G Ninja -DVELOMAR_SOURCE_DIR="$PWD" > /dev/null
cmake --build $build/subdir-consumer -j "${JOBS:-2}" > /dev/null
$build/subdir-consumer/consumer

# pkg-config and cc, the library found at run time through its SONAME.
export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
cc -std=c99 -Wall -Werror consumers/pkgconfig/main.c $(pkg-config --cflags --libs velomar) \
  -o $build/pkgconfig-consumer
[ "$(objdump -p $build/pkgconfig-consumer | awk '/NEEDED/ && /velomar/ {print $2}')" = libvelomar.so.0 ] ||
  { echo "FAIL: the consumer does not link against libvelomar.so.0"; exit 1; }
LD_LIBRARY_PATH="$prefix/$libdir" $build/pkgconfig-consumer
echo "consumers OK"
