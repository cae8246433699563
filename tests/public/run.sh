#!/usr/bin/env bash
# Uses the library as a host would: pkg-config and C11, the CMake package, the list of exports. What is used is what BUILD_DIR installs into a
# fresh prefix, without one what the system's packages have installed.
# usage: run.sh SOURCE_DIR [BUILD_DIR]
set -euo pipefail
source_dir=$1 build_dir=${2:-} prefix=/usr
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ -n "$build_dir" ]; then
    prefix=$work/prefix
    cmake --install "$build_dir" --prefix "$prefix" >/dev/null
    libdir=$(dirname "$(find "$prefix" -name 'libtav.so.0' | head -1)")
    export PKG_CONFIG_PATH=$libdir/pkgconfig LD_LIBRARY_PATH=$libdir
fi
libdir=${libdir:-$(pkg-config --variable=libdir tavlib)}

echo "== C11 through pkg-config"
read -ra flags <<<"$(pkg-config --cflags --libs tavlib)"
cc -std=c11 -Wall -Wextra -Wpedantic -Werror "$source_dir/tests/public/consumer.c" -o "$work/consumer" "${flags[@]}"
document=$source_dir/examples/shop/shop.json
"$work/consumer" "$(pkg-config --variable=catalogue tavlib)" "$document"

echo "== the CMake package"
mkdir "$work/cmake"
cat >"$work/cmake/CMakeLists.txt" <<TEXT
cmake_minimum_required(VERSION 3.22)
project(consumer C)
find_package(tavlib 0.1 REQUIRED)
add_executable(consumer $source_dir/tests/public/consumer.c)
target_link_libraries(consumer PRIVATE tavlib::tav)
file(WRITE \${CMAKE_BINARY_DIR}/catalogue "\${tavlib_CATALOGUE}")
TEXT
cmake -S "$work/cmake" -B "$work/cmake/build" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake/build" >/dev/null
"$work/cmake/build/consumer" "$(cat "$work/cmake/build/catalogue")" "$document"

echo "== exports"
readelf -d "$libdir/libtav.so" | grep -q 'SONAME.*libtav.so.0'
nm -D --defined-only "$libdir/libtav.so" | awk '{ print $3 }' | sed 's/@.*//' | grep -v '^TAVLIB_0$' | sort >"$work/exported"
sed -n 's/^        \([A-Za-z0-9_]*\);$/\1/p' "$source_dir/src/libtav.map" | sort >"$work/listed"
diff -u "$work/listed" "$work/exported"
echo "public interface: $(wc -l <"$work/exported") functions, as listed"
