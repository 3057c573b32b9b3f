#!/usr/bin/env bash
# Writes the fuzzers' seeds, made from the examples and the tests.
#   fuzz/seeds.sh FOLDER   into FOLDER/TARGET, which is made anew
set -euo pipefail
folder=$(realpath -m "$1")
cd "$(dirname "$0")/.."

rm -rf "$folder"
for fuzzer in fuzz/*Fuzzer.cpp; do
  mkdir -p "$folder/$(basename "$fuzzer" Fuzzer.cpp)"
done

# seed TARGET NAME: from standard input.
seed() { cat >"$folder/$1/$2"; }
# Half of a configuration is indentation.
compact() { sed 's/^ *//' "$1"; }
# A number below 256 as a byte.
raw() { printf '%b' "$(printf '\\x%02x' "$1")"; }
unhex() { tr -d ' \n' <"$1" | tr a-f A-F | basenc --base16 -d; }

configurations=()
for file in examples/*.json tests/lint/*.json; do
  case $file in *values.json | *devices.json) continue ;; esac
  configurations+=("$file")
done
choices=6 # the entities of the examples, and one more

for file in "${configurations[@]}"; do
  name=$(basename "$file" .json)
  compact "$file" | seed Configuration "$name"
  compact "$file" | seed Lint "$name"
  compact "$file" | seed Generate "$name"
  { compact "$file" && raw 0 && printf '04 05 5a 04 64 01 00\n01 07 05 5a\n'; } | seed Studio "$name"
done
for old in tests/compare/*.old.json; do
  new=${old%.old.json}.new.json
  { compact "$old" && raw 0 && compact "$new"; } | seed Compare "$(basename "$old" .old.json)"
done
number=0
for packet in tests/golden/*.write.hex; do
  for ((choice = 0; choice < choices - 1; ++choice)); do
    { raw $choice && unhex "$packet"; } | seed Firmware "$choice.$(basename "$packet" .hex)"
  done
done
for packet in examples/*.hex; do
  name=$(basename "$packet" .notify.hex)
  for ((choice = 0; choice < choices; ++choice)); do
    { raw $choice && unhex "$packet"; } | seed Packet "$choice.$name"
  done
  { raw $number && raw 16 && printf '# %s\n' "$name" && tr '\n' ' ' <"$packet" &&
    printf '\n{"at": 1, "packet": "%s", "by": "%s"}\n' "$(tr -d '\n' <"$packet")" "$name"; } |
    seed PacketLines "$name"
  # Bytes with some repetition.
  head -c 500 "examples/$name.json" | seed Codec "$name.text"
  head -c 900 "examples/$name.json" | tail -c 400 | basenc --base64 -w 0 | seed Codec "$name.base64"
  { unhex "$packet" && unhex "$packet" && unhex "$packet"; } | seed Codec "$name.bytes"
  # Each packet has its length before it.
  { compact "examples/$name.json" && raw 0 && compact "examples/$name.values.json" && raw 0 &&
    raw "$(unhex "$packet" | wc -c)" && unhex "$packet" && raw 2 && unhex "$packet" | head -c 2 && raw 0; } |
    seed CInterface "$name"
  { raw 0 && compact "examples/$name.values.json" && raw 0 && raw "$(unhex "$packet" | wc -c)" &&
    unhex "$packet"; } | seed CInterface "$name.packet"
  { raw 20 && raw 0 && unhex "$packet"; } | seed Base64 "$name.bytes"
  { raw 200 && raw 0 && unhex "$packet" | basenc --base64; } | seed Base64 "$name.text"
  sed '1s/{/{"version": 4.0,/' "tests/golden/$name.decoded.json" | seed ReceiveDocument "$name.decoded"
  seed ReceiveDocument "$name.flat" <"tests/golden/$name.flat.json"
  compact "examples/$name.values.json" | seed Values "$name"
  # Replaces every number by other values.
  form=0
  for other in true null '"&"' '"0x&"' '""' '&e9' '[&]' '{"a": &}' 4294967295 9223372036854775808 9e300; do
    sed -E "s/\b[0-9.]+\b/$other/" "examples/$name.values.json" | seed Values "$name.$form"
    form=$((form + 1))
  done
  number=$((number + 1))
done
for ((choice = 0; choice < choices; ++choice)); do
  # The last choice uses its own configuration instead of an example.
  { raw $choice && compact examples/kettle.json && raw 0 && unhex examples/kettle.notify.hex; } |
    seed Packet "$choice.own"
done
# Lines that are almost JSON, and hexadecimal digits in every form.
{ raw 0 && raw 3 && printf '%s\n' '{"packet": "0405", /* no */ "at": 1}' '{"packet": "0405"} // no' \
  '{"packet": "0405", "packet": "04"}' '{"at": +1, "packet": "0405"}' '{"packet": "0405"} {}' '{"packet": 5}' \
  '{"a": {"b": ["\u0000", -0.5e3, null]}, "packet": "\u0030405"}' '{"packet": "04"}x' &&
  printf '%s\n' 0405 0x0405 0X04:05 '04,05' '04 , 0x05' '04:' ':04' '04::05' 040 04x5 '0x 04'; } | seed PacketLines lines
# The longest packet that is received, and one byte more.
for bytes in 16384 16385; do
  { raw 0 && raw 4 && head -c $bytes /dev/zero; } | seed Packet "0.$bytes"
done
for build in 0 1; do
  { raw $build && cat examples/devices.json; } | seed Devices "$build.list"
  { raw $build && compact examples/kettle.json; } | seed Devices "$build.device"
done
