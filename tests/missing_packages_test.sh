#!/usr/bin/env bash
# A part without its library is left out with a message; if the part is required, configuring fails. Both name the
# package.
# SOURCE_DIR BUILD_DIR WORK_DIR
set -euo pipefail
source_dir=$1 work_dir=$3

# expect succeeds|fails TEXT OPTION...: configuring ends like this and says this.
expect() {
  local end=succeeds
  rm -rf "$work_dir" && mkdir -p "$work_dir"
  cmake -S "$source_dir" -B "$work_dir" "${@:3}" >"$work_dir.log" 2>&1 || end=fails
  # Error messages are wrapped.
  if [ $end != "$1" ] || ! tr -s '[:space:]' ' ' <"$work_dir.log" | grep -F -- "$2" >/dev/null; then
    echo "expected that it $1 and says: $2"
    cat "$work_dir.log"
    exit 1
  fi
}

declare -A packages=([CLI11]=libcli11-dev [fmt]=libfmt-dev [nlohmann_json]=nlohmann-json3-dev [Utf8proc]=libutf8proc-dev)
for library in "${!packages[@]}"; do
  expect succeeds "Leaving out the tool dp4. To build it, install the Debian packages: ${packages[$library]}" \
    -DMORVIX_BUILD_TESTS=OFF -DCMAKE_DISABLE_FIND_PACKAGE_"$library"=ON
done
expect fails "which the tool dp4 needs, are missing: libcli11-dev libutf8proc-dev" -DMORVIX_BUILD_TOOLS=ON \
  -DMORVIX_BUILD_TESTS=OFF -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_Utf8proc=ON
expect succeeds "Leaving out the test suite. To build it, install the Debian packages: libgmock-dev" \
  -DMORVIX_BUILD_TOOLS=OFF -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
expect fails "which the test suite needs, are missing: libgmock-dev" -DMORVIX_BUILD_TESTS=ON \
  -DMORVIX_BUILD_TOOLS=OFF -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON
