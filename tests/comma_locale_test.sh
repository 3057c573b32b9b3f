#!/usr/bin/env bash
# Makes locales without a decimal point and runs the tests that need them.
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
build_dir=$2 work_dir=$3
rm -rf "$work_dir" && mkdir -p "$work_dir"
for locale in de_DE ps_AF; do localedef -i $locale -f UTF-8 "$work_dir/$locale.UTF-8"; done
LOCPATH=$work_dir "$build_dir/tests/CommaLocaleTest"
