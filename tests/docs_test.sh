#!/usr/bin/env bash
# Compiles and runs the complete C++ programs in README.md and docs/ (blocks fenced as "cpp"), with the source folder as
# the working directory.
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
source_dir=$1 build_dir=$2 work_dir=$3
rm -rf "$work_dir" && mkdir -p "$work_dir"
cd "$source_dir"
for document in README.md docs/*.md; do
  awk -v stem="$work_dir/$(basename "$document" .md)" '
    /^```cpp$/ { inside = 1; file = stem "-" ++count ".cpp"; next }
    /^```$/ { inside = 0 }
    inside { print > file }' "$document"
done
read -ra compiler_flags <<<"${CXXFLAGS:-}"
read -ra json_flags <<<"$(pkg-config --cflags --libs jsoncpp)"
count=0
for program in "$work_dir"/*.cpp; do
  "$CXX" -std=c++17 "${compiler_flags[@]}" -Wall -Wextra -Werror -I. "$program" -L"$build_dir" -lmorvix_protocol_v4 \
    -lmorvix_host "${json_flags[@]}" -pthread -o "${program%.cpp}"
  echo "== ${program##*/}"
  LD_LIBRARY_PATH=$build_dir "${program%.cpp}"
  count=$((count + 1))
done
[ "$count" -gt 0 ]
