#!/usr/bin/env bash
# padinfo_test.sh PROGRAM: vela-padinfo on virtual pads (preloaded from $PRELOAD, if set).
. "$(dirname "$0")/testing.sh"
padinfo=$1

expect "no pad" "vela-padinfo: no pad is attached 1" "$(on_pads "" "$padinfo" 2>&1) $?"
expect "no pad in JSON" "[]" "$(on_pads "" "$padinfo" --json 2>/dev/null)"
expect "no pad of that name" "vela-padinfo: no Vela Ink is attached 1" \
  "$(on_pads usb "$padinfo" --pad 'Vela Ink' 2>&1) $?"

expect "all pads" "Vela USB, 1 attached
  serial    none
  x         0 to 32767
  y         0 to 32767
  pressure  0 to 127
  surface   3.685 x 2.23 inches
Vela II, 1 attached
  serial    33c72a14d34842c6becddcebfa091827
  x         0 to 32767
  y         0 to 32767
  pressure  0 to 127
  surface   3.685 x 2.23 inches
Vela Ink, 1 attached
  serial    99f6f7c515574d19a897867564534231
  x         0 to 32767
  y         0 to 32767
  pressure  0 to 255
  surface   3.11 x 2.28 inches
Vela Vision, 1 attached
  serial    0123456789abcdef1032547698badcfe
  x         0 to 1300
  y         0 to 1400
  pressure  0 to 1023
  surface   4.5 x 2.8 inches
0" "$(on_pads usb,ii,ink,vision "$padinfo"; echo $?)"
expect "all pads are left closed and reset" "open 0, misused 0
ink trace 0, backlight 0, layers 000
vision mode 4" "$(cat "$work/left")"

expect "one pad in JSON" '[
  {"name": "Vela II", "class_id": "C1AF33B2529E4D2DB885DAF2780009EE", "attached": 1, "nodes": [], "may_be_opened": true, "serial": "33c72a14d34842c6becddcebfa091827", "x": [0, 32767], "y": [0, 32767], "pressure": [0, 127], "inches": [3.685, 2.23]}
]' "$(on_pads usb,ii,ink "$padinfo" --json --pad 'Vela II')"
expect "a pad without a serial number, and another, in JSON" '"serial": null, "serial": "0123456789abcdef1032547698badcfe", ' \
  "$(on_pads usb,vision "$padinfo" --json | grep -o '"serial": [^ ]* ' | tr -d '\n')"
if command -v python3 >/dev/null; then
  expect "the JSON is well formed" "4" "$(on_pads usb,ii,ink,vision "$padinfo" --json |
    python3 -c 'import json, sys; print(len(json.load(sys.stdin)))')"
fi

VELA_LOCKED=1 on_pads ii "$padinfo" --json >"$work/json" 2>"$work/errors"
expect "what the SDK prints is kept out of the output" "[" "$(head -n 1 "$work/json")"
expect "and shown" "velaii:opendevice failed" "$(head -n 1 "$work/errors")"

for signal in INT TERM HUP; do
  drive vision "*up" $signal "$padinfo" --samples
  expect "samples until SIG$signal" "      1000 ms  #1    x   325  y   700  pressure  512  down
      1010 ms  #2    x   975  y   350  pressure 1023  down
      1020 ms  #3    x   975  y   350  pressure    0  up
0" "$output
$code"
  expect "SIG$signal leaves the pad closed" "open 0, misused 0
vision mode 4" "$(cat "$work/left")"
done

drive vision '*false*' TERM "$padinfo" --samples --json
expect "samples in JSON" \
  '{"timestamp": 1000, "sequence": 1, "x": 325, "y": 700, "pressure": 512, "touch": true}
{"timestamp": 1010, "sequence": 2, "x": 975, "y": 350, "pressure": 1023, "touch": true}
{"timestamp": 1020, "sequence": 3, "x": 975, "y": 350, "pressure": 0, "touch": false}' "$output"

on_pads ink "$padinfo" --samples | head -n 1 >"$work/first"
expect "the samples end when nobody reads" "0" "${PIPESTATUS[0]}"
expect "and leaves the pad reset" "open 0, misused 0
ink trace 0, backlight 0, layers 000" "$(cat "$work/left")"

# Plugging and unplugging on a kernel is tested in tests/kernel.
for signal in INT TERM HUP; do
  drive "" "*no pad*" $signal "$padinfo" --watch
  expect "watching until SIG$signal" "vela-padinfo: no pad is attached 0" "$output $code"
done
on_pads "" "$padinfo" --watch 2>/dev/null | true
expect "watching ends when nobody reads" "0" "${PIPESTATUS[0]}"

usage="usage: vela-padinfo [--watch | --samples] [--json] [--pad NAME]"
expect_refused "$padinfo" "$usage" "unrecognized option '--wrong'" --wrong
expect_refused "$padinfo" "$usage" "unexpected argument 'word'" word
expect_refused "$padinfo" "$usage" "unknown pad 'Vela'; the pads are Vela USB, Vela II, Vela Ink, Vela Vision" --pad Vela
expect_refused "$padinfo" "$usage" "the name of the pad is empty" --pad ""
expect_refused "$padinfo" "$usage" "--watch and --samples cannot be used together" --watch --samples
expect_help "$padinfo" "$usage"
expect "output that cannot be written" "1" "$(on_pads usb "$padinfo" >/dev/full 2>&1; echo $?)"
finish
