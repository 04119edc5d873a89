#!/usr/bin/env bash
# fits_test.sh PROGRAM SCALE: on a display of the size $SCREEN (WIDTHxHEIGHT) and at that scale, the application's
# window and each pad's stand beside each other and within the screen, although the desktop puts the application
# into the middle at first. Needs xdotool.
set -u
program=$1
width=${SCREEN%x*}
height=${SCREEN#*x}

# The toolkit places the first window there.
QT_SCALE_FACTOR=$2 "$program" -qwindowgeometry +$((width / 3))+$((height / 4)) &
application=$!
trap 'kill -KILL $application' EXIT

fail() {
  echo "$*"
  exit 1
}

expect_beside() { # NAME
  local pad right
  pad=$(xdotool search --sync --onlyvisible --name "^$1 .virtual pad.\$")
  # Sets X, Y, WIDTH and HEIGHT, as the next one does.
  eval "$(xdotool getwindowgeometry --shell "$window")"
  right=$((X + WIDTH))
  [ "$X" -ge 0 ] && [ "$Y" -ge 0 ] && [ $((Y + HEIGHT)) -le "$height" ] ||
    fail "the application is at $X, $Y, $WIDTH x $HEIGHT"
  eval "$(xdotool getwindowgeometry --shell "$pad")"
  [ "$X" -ge $right ] && [ "$Y" -ge 0 ] &&
    [ $((X + WIDTH)) -le "$width" ] && [ $((Y + HEIGHT)) -le "$height" ] ||
    fail "$1 is at $X, $Y, $WIDTH x $HEIGHT; the application ends at $right"
}

window=$(xdotool search --sync --onlyvisible --name '^Vela Pad Test$')
expect_beside "Vela USB"
xdotool windowfocus --sync "$window" key alt+r
downs=
for pad in "Vela II" "Vela Ink" "Vela Vision"; do
  downs+=" Down"
  # Until Reset is done the list changes nothing.
  # shellcheck disable=SC2086
  until xdotool search --onlyvisible --name "^$pad .virtual pad.\$" >/dev/null; do
    kill -0 $application || fail "the application has ended"
    xdotool key alt+p Home $downs
  done
  expect_beside "$pad"
done

kill -TERM $application
wait $application || fail "the application ended with status $?"
trap - EXIT
