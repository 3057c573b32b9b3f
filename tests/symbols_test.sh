#!/usr/bin/env bash
# The module's object shows nothing to the linker but its public face: a type of the source unit in an external symbol
# would merge silently with a like-named type of another version's source unit.
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
source_dir=$1 build_dir=$2
symbols=$(nm -C --defined-only --extern-only "$build_dir"/libmorvix_protocol_v4.*)
types=$(grep -oE '^ *(struct|class|enum( class)?) [A-Z][A-Za-z]+' \
  "$source_dir/Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp" | awk '{ print $NF }')
[ "$(wc -l <<<"$types")" -gt 10 ]
failed=0
for type in $types; do
  if grep -wF "$type" <<<"$symbols"; then
    echo "$type is visible to the linker"
    failed=1
  fi
done
# Functions of our own are the exported operations.
if grep -E '^[0-9a-f]+ T ' <<<"$symbols" | grep -vE ' T Protocol[A-Za-z0-9]+(_4_0)?(\[abi:cxx11\])?\('; then
  echo "these are not exported operations"
  failed=1
fi
exit $failed
