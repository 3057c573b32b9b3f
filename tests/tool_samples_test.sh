#!/usr/bin/env bash
# Runs the samples of the tool in README.md and docs/ (blocks fenced as "console") and compares what comes out. A line
# after "$ " is a command, run in the folder of the examples; what follows up to the next one is its standard output,
# with "[exit code N]" at the end where it is not 0.
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
source_dir=$1 build_dir=$2 work_dir=$3
rm -rf "$work_dir" && mkdir -p "$work_dir"
PATH=$build_dir/tools/dp4:$PATH
cd "$source_dir/examples"
count=0
command=
expected=$work_dir/expected

check() {
  [ -n "$command" ] || return 0
  count=$((count + 1))
  local code=0
  bash -c "$command" 2>/dev/null | tr -d '\r' >"$work_dir/found" || code=${PIPESTATUS[0]}
  if [ "$code" -ne 0 ]; then echo "[exit code $code]" >>"$work_dir/found"; fi
  echo "== $command"
  diff -u "$expected" "$work_dir/found"
}

for document in ../README.md ../docs/*.md; do
  inside=
  while IFS= read -r line; do
    case $inside$line in
      '```console') inside=x ;;
      'x```') check && inside='' command='' ;;
      'x$ '*)
        check
        command=${line#'$ '}
        : >"$expected"
        ;;
      x*) printf '%s\n' "$line" >>"$expected" ;;
    esac
  done <"$document"
done
echo "$count samples"
[ "$count" -gt 0 ]
