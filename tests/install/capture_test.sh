#!/usr/bin/env bash
# capture_test.sh PROGRAM: vela-capture on virtual pads (preloaded from $PRELOAD, if set).
. "$(dirname "$0")/testing.sh"
capture=$1
svg=$work/signature.svg
csv=$work/signature.csv
png=$work/signature.png
inkml=$work/signature.inkml
check_inkml=$(cd "$(dirname "$0")" && pwd)/check_inkml.py

# The drawing of the vision pad: 4.5 x 2.8 inches are 324 x 201.6 points; x 325 of 1300 is 81 points,
# 975 is 243; y 700 of 1400 is 100.8, 350 is 50.4.
before=$(date +%s%3N)
drive vision "*3 samples" Enter "$capture" "$svg" "$csv" "$png" "$inkml"
after=$(date +%s%3N)
# The pen does not wait for the prompt.
expect "a signature" "vela-capture: 3 samples
vela-capture: sign on the Vela Vision, then press Enter
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

start=$(sed -n 's/.*<timestamp xml:id="start" time="\([0-9]*\)".*/\1/p' "$inkml")
[ "$before" -le "${start:-0}" ] && [ "${start:-0}" -le "$after" ]
expect "the digital ink begins when the pen landed" 0 $?
# 1300 units in 4.5 inches and 1400 in 2.8.
expect "the digital ink" '<?xml version="1.0" encoding="UTF-8"?>
<ink xmlns="http://www.w3.org/2003/InkML">
  <definitions>
    <timestamp xml:id="start" time="'"$start"'"/>
    <inkSource xml:id="pad" model="Vela Vision">
      <traceFormat xml:id="samples">
        <channel name="X" type="integer" min="0" max="1300" units="dev"/>
        <channel name="Y" type="integer" min="0" max="1400" units="dev"/>
        <channel name="F" type="integer" min="0" max="1023" units="dev"/>
        <channel name="T" type="integer" min="0" units="ms" respectTo="#start"/>
      </traceFormat>
      <activeArea width="4.5" height="2.8" units="in"/>
      <channelProperties>
        <channelProperty channel="X" name="resolution" value="288.89" units="1/in"/>
        <channelProperty channel="Y" name="resolution" value="500.00" units="1/in"/>
      </channelProperties>
    </inkSource>
    <context xml:id="onThePad" inkSourceRef="#pad" traceFormatRef="#samples"/>
  </definitions>
  <trace contextRef="#onThePad">325 700 512 0,
975 350 1023 10</trace>
</ink>' "$(cat "$inkml")"
if command -v python3 >/dev/null; then
  expect "its grammar" "" "$(python3 "$check_inkml" "$inkml" 2>&1)"
  sed 's/max="1300"/max="324"/; s/ inkSourceRef="#pad"/ inkSourceRef="#p"/; s/units="in"/units="inch"/' "$inkml" \
    >"$work/broken.inkml"
  expect "errors against its grammar" "there is no unit inch
context's inkSourceRef #p leads nowhere
325 is out of the range of X
975 is out of the range of X" "$(python3 "$check_inkml" "$work/broken.inkml" 2>&1)"
else
  echo "python3 is not installed; the grammar of the digital ink was not looked at"
fi

# 300 pixels an inch; the line goes from (337.5, 420) to (1012.5, 210).
expect "the size of the picture" "1350 840" "$(od --endian=big -An -tu4 -j16 -N8 "$png" | xargs)"
if command -v convert >/dev/null; then
  pixel() { convert "$png" -format "%[hex:u.p{$1,$2}]" info:-; }
  expect "the picture: begin, middle and end of the line; beside it, a corner" \
    "0000FF 0000FF 0000FF FFFFFF FFFFFF" \
    "$(pixel 338 420) $(pixel 675 315) $(pixel 1012 210) $(pixel 675 330) $(pixel 0 0)"
else
  echo "ImageMagick is not installed; the picture was not looked at"
fi
expect "the pad is left closed" "open 0, misused 0
vision mode 4" "$(cat "$work/left")"

drive usb,ink "*3 samples" Enter "$capture" --pad "Vela Ink" "$svg" "$csv"
expect "the ink pad by its name" "8192,16384,128,1 24575,8192,255,1 24575,8192,0,0" \
  "$(sed 1d "$csv" | cut -d, -f1-4 | xargs)"
expect "the ink pad is left reset" "open 0, misused 0
ink trace 0, backlight 0, layers 000" "$(cat "$work/left")"

rm "$svg" "$csv"
for signal in INT TERM; do
  drive ink "*3 samples" $signal "$capture" "$svg" "$csv"
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

# The files are opened before the pen writes.
drive ink "*sign on*" Enter "$capture" "$svg" "$work/no/folder.csv"
expect "a file that cannot be made" "vela-capture: $work/no/folder.csv: No such file or directory
1" "$output
$code"
expect "the other one is not made either" "" "$(ls "$svg" 2>/dev/null)"

echo precious >"$csv"
VELA_PEN=none drive ink "*sign on*" Enter "$capture" "$svg" "$csv"
expect "nothing written" "vela-capture: sign on the Vela Ink, then press Enter
vela-capture: nothing was written on the pad
1" "$output
$code"
expect "nothing written makes no file" "" "$(ls "$svg" 2>/dev/null)"
expect "nothing written leaves an older file" "precious" "$(cat "$csv")"

printf '%1000s' >"$csv"
drive usb "*3 samples" Enter "$capture" "$csv"
expect "an older file is replaced" "4" "$(grep -c , "$csv")"
expect "and nothing of it is left" "" "$(tr -d '[:print:]\n' <"$csv")$(grep ' ' "$csv")"

ln -s /dev/full "$work/full.svg"
ln -s /dev/full "$work/full.png"
drive usb "*3 samples" Enter "$capture" "$work/full.svg" "$work/full.png" "$csv"
expect "files that cannot be written" "vela-capture: $work/full.svg: No space left on device
vela-capture: $work/full.png: No space left on device
1" "$(grep full <<<"$output")
$code"
expect "the other file is written nevertheless" "4" "$(grep -c , "$csv")"

expect "no pad" "vela-capture: no pad is attached 1" "$(on_pads "" "$capture" "$svg" 2>&1) $?"
expect "no pad of that name" "vela-capture: no Vela II is attached 1" \
  "$(on_pads ink "$capture" --pad "Vela II" "$svg" 2>&1) $?"

usage="usage: vela-capture [--pad NAME] FILE..."
expect_refused "$capture" "$usage" "unrecognized option '--wrong'" --wrong
expect_refused "$capture" "$usage" "option '--pad' requires an argument" a.svg --pad
expect_refused "$capture" "$usage" "missing file operand"
expect_refused "$capture" "$usage" "a.gif: unknown format; the suffixes are .svg, .png, .inkml, .csv" a.svg a.gif
expect_refused "$capture" "$usage" "plain: unknown format; the suffixes are .svg, .png, .inkml, .csv" plain
expect_refused "$capture" "$usage" "unknown pad 'ink'; the pads are Vela USB, Vela II, Vela Ink, Vela Vision" --pad ink a.SVG
expect_help "$capture" "$usage"
finish
