# shellcheck shell=bash
# Functions shared by the shell tests. Sourced; $work is a fresh folder.
set -u
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

skip() {
  echo "SKIPPED: $*"
  exit 77
}

# Ends the test.
fail() {
  echo "$*"
  exit 1
}

expect() { # WHAT EXPECTED ACTUAL
  [ "$2" = "$3" ] && return
  failures=$((failures + 1))
  printf '%s\n  expected: %s\n  got:      %s\n' "$1" "${2//$'\n'/$'\n            '}" \
    "${3//$'\n'/$'\n            '}"
}

# To be called at the end.
finish() {
  [ $failures = 0 ] || exit 1
  echo "all as expected"
}
