#!/usr/bin/env bash
# The C interface from outside of the tree: in C99 and C++, with the shared and the static library. WAY is package
# (find_package), pkg-config, or subdirectory (which needs no install).
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
source_dir=$1 build_dir=$2 work_dir=$3
rm -rf "$work_dir" && mkdir -p "$work_dir"
prefix=$work_dir/prefix
consumer=$source_dir/tests/consumer_c

build_with_cmake() {
  cmake -S "$consumer" -B "$work_dir/build" -DWAY="$WAY" "$@"
  cmake --build "$work_dir/build"
  "$work_dir/build/in_c"
  "$work_dir/build/in_cpp"
}

install() { cmake --install "$build_dir" --prefix "$prefix"; }

case $WAY in
  package)
    install
    build_with_cmake -DCMAKE_PREFIX_PATH="$prefix"
    ;;
  subdirectory)
    build_with_cmake -DMORVIX_SOURCE_DIR="$source_dir"
    ;;
  pkg-config)
    install
    PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name morvix-protocol-c.pc)")
    export PKG_CONFIG_PATH
    read -ra compiler_flags <<<"${CXXFLAGS:-}"
    warnings=(-Wall -Wextra -Wpedantic -Werror)
    read -ra flags <<<"$(pkg-config --cflags --libs morvix-protocol-c)"
    "$CC" -std=c99 "${compiler_flags[@]}" "${warnings[@]}" "$consumer/in_c.c" "${flags[@]}" -o "$work_dir/in_c"
    LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH") "$work_dir/in_c"
    # A C program needs nothing of C++ to link the shared library; the static one says what it needs.
    rm "$(dirname "$PKG_CONFIG_PATH")"/libmorvix_protocol_c.so*
    read -ra flags <<<"$(pkg-config --static --cflags --libs morvix-protocol-c)"
    "$CC" -std=c99 "${compiler_flags[@]}" "${warnings[@]}" "$consumer/in_c.c" "${flags[@]}" -o "$work_dir/in_c_static"
    "$work_dir/in_c_static"
    ;;
esac
