#!/usr/bin/env bash
# capture_test.sh PROGRAM: vela-capture on virtual pads (preloaded from $PRELOAD, if set).
. "$(dirname "$0")/testing.sh"
capture=$1
svg=$work/signature.svg
csv=$work/signature.csv

# The drawing of the vision pad: 4.5 x 2.8 inches are 324 x 201.6 points; x 325 of 1300 is 81 points,
# 975 is 243; y 700 of 1400 is 100.8, 350 is 50.4.
drive vision "3 samples" Enter "$capture" "$svg" "$csv"
# The pen does not wait for the prompt.
expect "a signature" "3 samples
Sign on the Vela Vision, then press Enter.
0" "$(sort <<<"$output")
$code"
expect "the drawing" '<svg xmlns="http://www.w3.org/2000/svg" width="324.00pt" height="201.60pt" viewBox="0 0 324.00 201.60">
<path fill="none" stroke="#00f" stroke-width="1.5" stroke-linecap="round" stroke-linejoin="round" d="M81.00 100.80L81.00 100.80
L243.00 50.40
"/>
</svg>' "$(cat "$svg")"
expect "the table" "x,y,pressure,touch,timestamp,sequence
325,700,512,1,1000,1
975,350,1023,1,1010,2
975,350,0,0,1020,3" "$(cat "$csv")"
expect "the pad is left closed" "open 0, misused 0
vision mode 4" "$(cat "$work/left")"

drive usb,ink "3 samples" Enter "$capture" --pad "Vela Ink" "$svg" "$csv"
expect "the ink pad by its name" "8192,16384,128,1 24575,8192,255,1 24575,8192,0,0" \
  "$(sed 1d "$csv" | cut -d, -f1-4 | xargs)"
expect "the ink pad is left reset" "open 0, misused 0
ink trace 0, backlight 0, layers 000" "$(cat "$work/left")"

rm "$svg" "$csv"
for signal in INT TERM; do
  drive ink "3 samples" $signal "$capture" "$svg" "$csv"
  expect "SIG$signal ends it" "130" "$code"
  expect "SIG$signal writes nothing" "" "$(ls "$svg" "$csv" 2>/dev/null)"
  expect "SIG$signal leaves the pad reset" "open 0, misused 0
ink trace 0, backlight 0, layers 000" "$(cat "$work/left")"
done

mkfifo "$work/silent"
exec 5<>"$work/silent"
VELA_SIGNAL=15 on_pads ink "$capture" "$svg" "$csv" 2>"$work/prompt" <&5
expect "a signal while the pad is being opened" "130" "$?"
expect "it leaves the pad reset too" "open 0, misused 0
ink trace 0, backlight 0, layers 000" "$(cat "$work/left")"

expect "no pad" "No pad is attached. 1" "$(on_pads "" "$capture" "$svg" "$csv" 2>&1) $?"
expect "one file only" "2" "$("$capture" "$svg" >"$work/usage" 2>&1; echo $?)"
expect "help" "usage: vela-capture 0" "$("$capture" --help | grep -o '^usage: vela-capture') $?"
drive usb "3 samples" Enter "$capture" "$work/no/folder.svg" "$csv"
expect "a file that cannot be written" "1" "$code"
expect "the other file is written all the same" "4" "$(grep -c , "$csv")"
finish
