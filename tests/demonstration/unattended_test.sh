#!/usr/bin/env bash
# unattended_test.sh PROGRAM: the unattended run saves the documented pictures. They are equal where the
# window is in the same state and contain text. The run reports when it cannot save them.
. "$(dirname "$0")/../testing.sh"
. "$(dirname "$0")/pictures.sh"
program=$1

"$program" --unattended "$work" >"$work/printed" || fail "the run failed"

expected=$(pictures_in "$work")
[ "$(cat "$work/printed")" = "$expected" ] || fail "other paths printed than expected"
for path in $expected; do
  [ -s "$path" ] || fail "no picture $path"
done

for pad in 1-vela-usb 2-vela-ii 3-vela-ink 4-vela-vision; do
  cmp "$work/$pad-2-open.png" "$work/$pad-4-cleared.png" || fail "Clear leaves something behind"
  cmp "$work/$pad-3-signed.png" "$work/$pad-5-signed-again.png" || fail "two signatures differ"
  cmp -s "$work/$pad-2-open.png" "$work/$pad-3-signed.png" && fail "no signature to be seen"
done
lcd=$work/3-vela-ink
cmp -s "$lcd-2-open-lcd.png" "$lcd-3-signed-lcd.png" && fail "no signature on the LCD"
if command -v convert >/dev/null; then
  corner() { convert "$1" -crop 20x20+0+0 +repage rgb:- | cksum; }
  [ "$(corner "$lcd-2-open-lcd.png")" = "$(corner "$lcd-3-signed-lcd.png")" ] ||
    fail "ink on the LCD where nobody signs"
else
  echo "there is no convert here; the LCD's corner was not looked at"
fi

# The window looks different with a font than without. Fonts come from fontconfig, which the toolkit does not
# use on macOS.
if [ "$(uname)" != Darwin ]; then
  echo '<fontconfig/>' >"$work/fonts.conf"
  mkdir "$work/boxes"
  mkfifo "$work/paths"
  FONTCONFIG_FILE=$work/fonts.conf "$program" --unattended "$work/boxes" >"$work/paths" &
  read -r first <"$work/paths"
  kill -KILL $!
  wait $!
  cmp -s "$first" "$work/${first##*/}"
  [ $? = 1 ] || fail "no font for the text in the pictures"
fi

# When terminated in the middle of a signature, it ends without waiting half a minute for the rest.
SECONDS=0
mkdir "$work/ended"
mkfifo "$work/pipe"
"$program" --unattended "$work/ended" >"$work/pipe" 2>"$work/printed" &
{
  read -r _ && read -r _ # two pictures are made before the signature
  kill -TERM $!
  cat >/dev/null
} <"$work/pipe"
wait $! && fail "success without a signature"
[ $SECONDS -lt 25 ] || fail "it took $SECONDS s to end"
[ "$(tail -n 1 "$work/printed")" = \
  "vela-demonstration: Vela USB was closed before the signature was whole" ] ||
  fail "no clear line about the end: $(cat "$work/printed")"

# The platform may add lines of its own before the last one.
"$program" --unattended "$work/missing" 2>"$work/printed" && fail "success without pictures"
[ "$(tail -n 1 "$work/printed")" = \
  "vela-demonstration: cannot write $work/missing/1-vela-usb-1-chosen.png" ] ||
  fail "no clear line about the missing directory"

"$program" --nonsense 2>"$work/printed"
[ $? = 2 ] || fail "an unknown option is accepted"
[ "$(tail -n 1 "$work/printed")" = "usage: vela-demonstration [--unattended DIRECTORY]" ] ||
  fail "no usage line"
