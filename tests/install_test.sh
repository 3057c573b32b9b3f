#!/usr/bin/env bash
# Installs into a temporary prefix, then builds and runs a program outside of the tree: WAY is package (find_package),
# pkg-config, or subdirectory (which needs no install).
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
source_dir=$1 build_dir=$2 work_dir=$3
rm -rf "$work_dir" && mkdir -p "$work_dir"
prefix=$work_dir/prefix
consumer=$source_dir/tests/consumer

build_with_cmake() {
  cmake -S "$consumer" -B "$work_dir/build" -DWAY="$WAY" "$@"
  cmake --build "$work_dir/build"
  "$work_dir/build/consumer"
}

install() { cmake --install "$build_dir" --prefix "$prefix"; }

case $WAY in
  package)
    install
    build_with_cmake -DCMAKE_PREFIX_PATH="$prefix"
    ;;
  subdirectory)
    build_with_cmake -DMORVIX_SOURCE_DIR="$source_dir"
    # Nothing of ours but the libraries is built for somebody else's project.
    ! find "$work_dir/build" -name '*Test' -o -name demo -o -name dp4 -type f | grep .
    ;;
  pkg-config)
    install
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name morvix-protocol.pc)")
    export PKG_CONFIG_PATH
    read -ra flags <<<"$(pkg-config --cflags --libs morvix-protocol)"
    read -ra compiler_flags <<<"${CXXFLAGS:-}"
    # The headers are for programs without exceptions, too.
    "$CXX" -std=c++17 "${compiler_flags[@]}" -fno-exceptions "$consumer/main.cpp" "${flags[@]}" -o "$work_dir/consumer"
    LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH") "$work_dir/consumer"
    ;;
esac
