#!/usr/bin/env bash
# Builds the npm package: the C interface, the module, its host services and JsonCpp as WebAssembly, with its JavaScript
# and declarations. The same sources and packages give the same files.
#   bindings/js/build.sh [FOLDER]     where to write it; build/js/package by default
# Needs Debian's emscripten and dpkg-dev, and downloads the source package of JsonCpp.
set -euo pipefail
cd "$(dirname "$0")/../.."
export LC_ALL=C # one order of file names
package=$(realpath -m "${1:-build/js/package}")
work=$PWD/build/js
mkdir -p "$work" "$package"

# JsonCpp is the system's everywhere else; its library is not there for WebAssembly.
. script/debian-source.sh
debian_sources build/debian-source libjsoncpp
jsoncpp=build/debian-source/libjsoncpp

# What the glue calls, and nothing else.
functions=$(grep -oE '\bmorvix_[a-z_]+\b' bindings/js/index.js | grep -vx morvix_protocol | sort -u | sed 's/^/_/' |
  paste -sd,)
# One processor a file.
objects=()
compile() {
  em++ -std=c++17 -O3 -fwasm-exceptions -fvisibility=hidden "-ffile-prefix-map=$PWD=." -I. -I"$jsoncpp/include" \
    -c "$1" -o "$2"
}
export -f compile
export jsoncpp
for source in bindings/c/morvix_protocol.cpp Protocol/AllVersions/v4/ProtocolInternal_v4.0.cpp host/*.cpp \
  "$jsoncpp"/src/lib_json/json_{reader,value,writer}.cpp; do
  objects+=("$work/$(basename "$source" .cpp).o")
  printf '%s\0%s\0' "$source" "${objects[-1]}"
done >"$work/sources"
xargs -0 -n 2 -P "$(nproc)" bash -c 'compile "$@"' - <"$work/sources"
em++ -O3 -fwasm-exceptions "${objects[@]}" -sSTANDALONE_WASM --no-entry -sALLOW_MEMORY_GROWTH=1 \
  -sEXPORTED_FUNCTIONS="$functions,_malloc" -o "$package/morvix_protocol.wasm"
chmod 644 "$package/morvix_protocol.wasm"
cp bindings/js/{package.json,index.js,index.d.ts,README.md} "$package"
