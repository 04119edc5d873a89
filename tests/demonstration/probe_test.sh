#!/usr/bin/env bash
# probe_test.sh PROBE: the probe finds the display of this test, and no other, and prints nothing. Needs a
# display.
. "$(dirname "$0")/../testing.sh"
probe=$1

run() { # COMMAND...: its output and its exit status
  "$@" 2>&1
  echo $?
}
expect "the display of this test" 0 "$(run "$probe")"
expect "a display that does not exist" 1 "$(run env DISPLAY=:9999 "$probe")"
expect "no display" 1 "$(run env -u DISPLAY "$probe")"
finish
