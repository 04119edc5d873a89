#!/usr/bin/env bash
# fits_test.sh PROGRAM SCALE: on a display of the size $SCREEN (WIDTHxHEIGHT) and at that scale, the application's
# window and each pad's window are side by side and within the screen, although the desktop first places the
# application in the middle. Needs xdotool.
. "$(dirname "$0")/../testing.sh"
program=$1
width=${SCREEN%x*}
height=${SCREEN#*x}

# The toolkit places the first window there.
QT_SCALE_FACTOR=$2 "$program" -qwindowgeometry +$((width / 3))+$((height / 4)) &
application=$!
trap 'kill -KILL $application 2>/dev/null; rm -rf "$work"' EXIT

# Sets $pad. Repeats the keys until the window appears; a search fails if a window disappears meanwhile.
await_pad() { # NAME KEY...
  local name=$1
  shift
  until pad=$(xdotool search --onlyvisible --name "^$name .virtual pad.\$" 2>/dev/null) && [ -n "$pad" ]; do
    kill -0 $application || fail "the application has ended"
    [ $# = 0 ] || xdotool key "$@"
  done
}

expect_beside() { # NAME
  local right place
  # Sets X, Y, WIDTH and HEIGHT, as the next one does.
  eval "$(xdotool getwindowgeometry --shell "$window")"
  right=$((X + WIDTH))
  [ "$X" -ge 0 ] && [ "$Y" -ge 0 ] && [ $((Y + HEIGHT)) -le "$height" ] ||
    fail "the application is at $X, $Y, $WIDTH x $HEIGHT"
  # Pending keys may make the pad's window disappear and reappear.
  until place=$(xdotool getwindowgeometry --shell "$pad" 2>/dev/null) && [ -n "$place" ]; do
    await_pad "$1"
  done
  eval "$place"
  [ "$X" -ge $right ] && [ "$Y" -ge 0 ] &&
    [ $((X + WIDTH)) -le "$width" ] && [ $((Y + HEIGHT)) -le "$height" ] ||
    fail "$1 is at $X, $Y, $WIDTH x $HEIGHT; the application ends at $right"
}

window=$(xdotool search --sync --onlyvisible --name '^Vela Pad Test$')
await_pad "Vela USB"
expect_beside "Vela USB"
xdotool windowfocus --sync "$window" key alt+r
downs=
for name in "Vela II" "Vela Ink" "Vela Vision"; do
  downs+=" Down"
  # The list has no effect until Reset has finished.
  # shellcheck disable=SC2086
  await_pad "$name" alt+p Home $downs
  expect_beside "$name"
done

kill -TERM $application
wait $application || fail "the application ended with status $?"
