#!/bin/sh
# Installs the built library into a scratch prefix, then builds and runs a
# consumer against it twice: through find_package(numbra) and through
# pkg-config.
set -eu
build_dir=$1
package_dir=$2
cxx=$3
work=$build_dir/package-check
rm -rf "$work"
prefix=$work/prefix

cmake --install "$build_dir" --prefix "$prefix" > /dev/null

cmake -S "$package_dir/consumer" -B "$work/cmake-consumer" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_COMPILER="$cxx" > /dev/null
cmake --build "$work/cmake-consumer" > /dev/null
"$work/cmake-consumer/consumer"

pc_dir=$(dirname "$(find "$prefix" -name numbra.pc)")
flags=$(PKG_CONFIG_PATH=$pc_dir pkg-config --cflags --libs numbra)
libdir=$(PKG_CONFIG_PATH=$pc_dir pkg-config --variable=libdir numbra)
# shellcheck disable=SC2086
"$cxx" -std=c++17 "$package_dir/consumer/main.cpp" $flags -Wl,-rpath,"$libdir" -o "$work/pkgconfig-consumer"
"$work/pkgconfig-consumer"
