#!/usr/bin/env bash
# Makes a locale with a decimal comma and runs the test that needs one.
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
build_dir=$2 work_dir=$3
rm -rf "$work_dir" && mkdir -p "$work_dir"
localedef -i de_DE -f UTF-8 "$work_dir/de_DE.UTF-8"
LOCPATH=$work_dir "$build_dir/tests/CommaLocaleTest"
