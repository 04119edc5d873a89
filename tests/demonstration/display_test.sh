#!/usr/bin/env bash
# display_test.sh PROGRAM: in a real window the pen signs automatically on the first pad and, after the user
# has reset and opened another one, on that one. The open pad is shown beside the window and can be written
# on. Needs a display, xdotool and ImageMagick.
. "$(dirname "$0")/../testing.sh"
program=$1

"$program" &
application=$!
trap 'kill -KILL $application 2>/dev/null; rm -rf "$work"' EXIT

# In the whole window, or in the given part of it.
shows_ink() {
  import -window "$window" ppm:- | convert ppm:- ${1:+-crop "$1"} -depth 8 -format %c histogram:info:- |
    grep -q '#0000FF'
}

# The test's time limit ends these.
await_ink() {
  until shows_ink "$@"; do kill -0 $application || fail "the application has ended"; done
}
await_no_ink() {
  while shows_ink; do kill -0 $application || fail "the application has ended"; done
}

window=$(xdotool search --sync --onlyvisible --name '^Vela Pad Test$')
await_ink
xdotool search --onlyvisible --name '^Vela USB .virtual pad.$' || fail "the open pad is not shown beside"
xdotool windowfocus --sync "$window" key alt+r
await_no_ink
xdotool key alt+p Down Down Down alt+o
await_ink

xdotool search --onlyvisible --name '^Vela USB .virtual pad.$' && fail "the pad before is still shown"
pad=$(xdotool search --onlyvisible --name '^Vela Vision .virtual pad.$') || fail "the other pad is not shown beside"
# Above everything that the pen of the demonstration writes.
above=280x30+100+130
shows_ink $above && fail "the pen writes where it should not"
xdotool mousemove --window "$pad" 200 72 mousedown 1 mousemove --window "$pad" 400 82 mouseup 1
await_ink $above

kill -TERM $application
wait $application || fail "the application ended with status $?"
