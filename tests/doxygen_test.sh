#!/usr/bin/env bash
# Doxygen over the public headers: every declaration documented, no warning.
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
source_dir=$1 work_dir=$3
rm -rf "$work_dir" && mkdir -p "$work_dir"
cd "$source_dir"
doxygen - >"$work_dir/progress" 2>"$work_dir/warnings" <<END
INPUT = Protocol/AllVersions/v4 host bindings/c
FILE_PATTERNS = *.h
OUTPUT_DIRECTORY = $work_dir
GENERATE_LATEX = NO
HAVE_DOT = NO
QUIET = YES
WARN_IF_UNDOCUMENTED = YES
WARN_NO_PARAMDOC = NO
EXTRACT_PRIVATE = NO
END
cat "$work_dir/warnings"
[ ! -s "$work_dir/warnings" ]
# Something was really read.
grep -q ProtocolPackPackage_4_0 "$work_dir"/html/*.html
