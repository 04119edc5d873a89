#!/usr/bin/env bash
# probe_test.sh PROBE: the probe finds the display of this test, and no other, and prints nothing. Needs a
# display.
set -u
probe=$1
failures=0

expect() { # STATUS COMMAND...
  local status=$1 printed got
  shift
  printed=$("$@" 2>&1)
  got=$?
  [ "$got $printed" = "$status " ] && return
  echo "$*: status $got, printed \"$printed\""
  failures=1
}

expect 0 "$probe"
expect 1 env DISPLAY=:9999 "$probe"
expect 1 env -u DISPLAY "$probe"
exit $failures
