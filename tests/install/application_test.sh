#!/usr/bin/env bash
# application_test.sh PROGRAM: signs with the application on a virtual pad (preloaded from $PRELOAD). Needs a
# display, xdotool and ImageMagick.
. "$(dirname "$0")/testing.sh"

mkdir -m 700 "$work/runtime"
env XDG_RUNTIME_DIR="$work/runtime" VELA_PADS=ink VELA_LEFT="$work/left" LD_PRELOAD="$PRELOAD" "$1" >"$work/printed" 2>&1 &
application=$!
trap 'kill -KILL $application 2>/dev/null; rm -rf "$work"' EXIT

shows_ink() {
  import -window "$window" ppm:- | convert ppm:- -depth 8 -format %c histogram:info:- | grep -q '#0000FF'
}

window=$(timeout 60 xdotool search --sync --onlyvisible --name '^Vela Pad Test$' | head -n 1)
expect "the window has the class that its desktop entry names" "$window" \
  "$(xdotool search --onlyvisible --class '^vela-testapp$' | grep -x "$window")"
shows_ink
expect "ink before the pad is open" "1" "$?"

xdotool windowfocus --sync "$window" key alt+p Home Down Down alt+o # the ink pad
# The test's time limit ends this.
until shows_ink; do kill -0 $application || break; done
if [ -n "${PICTURE:-}" ]; then import -window "$window" "$PICTURE"; fi

kill -TERM $application
wait $application
expect "the exit status" "0" "$?"
expect "what it printed" "" "$(cat "$work/printed")"
expect "the pad is left reset" "open 0, misused 0
ink trace 0, backlight 0, layers 000" "$(cat "$work/left")"
finish
