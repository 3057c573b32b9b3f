#!/usr/bin/env bash
# Installs into a temporary prefix, then builds and runs programs outside of the tree, in C++ and in C: WAY is package
# (find_package), pkg-config, or subdirectory (which needs no install).
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
source_dir=$1 build_dir=$2 work_dir=$3
rm -rf "$work_dir" && mkdir -p "$work_dir"
prefix=$work_dir/prefix
consumer=$source_dir/tests/consumer

build_with_cmake() {
  cmake -S "$consumer" -B "$work_dir/build" -DWAY="$WAY" "$@"
  cmake --build "$work_dir/build"
  local program
  for program in module c_interface c_interface_cpp; do "$work_dir/build/$program"; done
}

install() { cmake --install "$build_dir" --prefix "$prefix"; }

build_with_pkg_config() {
  PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name morvix-protocol.pc)")
  export PKG_CONFIG_PATH
  local libraries flags compiler_flags warnings=(-Wall -Wextra -Wpedantic -Werror)
  libraries=$(dirname "$PKG_CONFIG_PATH")
  read -ra compiler_flags <<<"${CXXFLAGS:-}"

  # The headers are for programs without exceptions, too.
  read -ra flags <<<"$(pkg-config --cflags --libs morvix-protocol)"
  "$CXX" -std=c++17 "${compiler_flags[@]}" -fno-exceptions "$consumer/module.cpp" "${flags[@]}" -o "$work_dir/module"
  LD_LIBRARY_PATH=$libraries "$work_dir/module"

  read -ra flags <<<"$(pkg-config --cflags --libs morvix-protocol-c)"
  "$CC" -std=c99 "${compiler_flags[@]}" "${warnings[@]}" "$consumer/c_interface.c" "${flags[@]}" -o "$work_dir/shared"
  LD_LIBRARY_PATH=$libraries "$work_dir/shared"

  # A C program needs nothing of C++ to link the shared library; the static one says what it needs.
  rm "$libraries"/libmorvix_protocol_c.so*
  read -ra flags <<<"$(pkg-config --static --cflags --libs morvix-protocol-c)"
  "$CC" -std=c99 "${compiler_flags[@]}" "${warnings[@]}" "$consumer/c_interface.c" "${flags[@]}" -o "$work_dir/static"
  "$work_dir/static"
}

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
    build_with_pkg_config
    ;;
esac
