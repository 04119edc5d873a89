#!/usr/bin/env bash
# flat_test.sh COMMAND...: an example over the flat functions, on virtual pads (preloaded from $PRELOAD).
. "$(dirname "$0")/testing.sh"
command -v "$1" >/dev/null || skip "$1 is not installed"

drive ink "*up" Enter "$@"
expect "the samples" "Vela Ink, press Enter to end
0: x 8192 y 16384 pressure 128 down
1: x 24575 y 8192 pressure 255 down
2: x 24575 y 8192 pressure 0 up
0" "$output
$code"
expect "the pad is left reset" "open 0, misused 0
ink trace 0, backlight 0, layers 000" "$(cat "$work/left")"
expect "no pad" "No pad is attached. 1" "$(on_pads "" "$@" 2>&1) $?"
finish
