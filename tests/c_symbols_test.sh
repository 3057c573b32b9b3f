#!/usr/bin/env bash
# The libraries of the C interface show the functions of its header to the linker, and nothing else.
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
source_dir=$1 build_dir=$2
expected=$(grep -oE '\bmorvix_[a-z_]+\(' "$source_dir/bindings/c/morvix_protocol.h" | tr -d '(' | sort -u)
[ "$(wc -l <<<"$expected")" -gt 10 ]
shown() { nm "$@" | awk 'NF >= 3 { print $NF }' | sort -u; }
for library in "$build_dir"/bindings/c/libmorvix_protocol_c.{so,a}; do
  echo "== ${library##*/}"
  case $library in
    *.so) symbols=$(shown --dynamic --defined-only "$library") ;;
    *) symbols=$(shown --extern-only --defined-only "$library") ;;
  esac
  diff <(echo "$expected") <(echo "$symbols")
done
