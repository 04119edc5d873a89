# shellcheck shell=bash
# Functions shared by the tests of installed files. Sourced; $work is a fresh folder.
set -u
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# The list of libraries to preload has blanks between them, so none may have one in its path.
if [ -n "${PRELOAD:-}" ]; then
  ln -s "$PRELOAD" "$work/attached_pads.so"
  PRELOAD=$work/attached_pads.so
fi

skip() {
  echo "SKIPPED: $*"
  exit 77
}

expect() { # WHAT EXPECTED ACTUAL
  [ "$2" = "$3" ] && return
  failures=$((failures + 1))
  printf '%s\n  expected: %s\n  got:      %s\n' "$1" "${2//$'\n'/$'\n            '}" \
    "${3//$'\n'/$'\n            '}"
}

finish() {
  [ $failures = 0 ] || exit 1
  echo "all as expected"
}

# on_pads NAMES COMMAND...: runs the command with virtual pads attached; the state it leaves is in $work/left.
on_pads() {
  local names=$1
  shift
  rm -f "$work/left"
  env VELA_PADS="$names" VELA_LEFT="$work/left" ${PRELOAD:+LD_PRELOAD="$PRELOAD"} "$@"
}

# drive NAMES PATTERN ACT COMMAND...: runs the command on virtual pads. When a line of its output first
# matches, ACT happens: the Enter key, or the signal of that name. Output and exit code are in $output and
# $code.
drive() {
  local names=$1 pattern=$2 act=$3 line
  shift 3
  rm -f "$work/left"
  mkfifo "$work/in" "$work/out"
  env VELA_PADS="$names" VELA_LEFT="$work/left" ${PRELOAD:+LD_PRELOAD="$PRELOAD"} "$@" \
    <"$work/in" >"$work/out" 2>&1 &
  local pid=$!
  exec 3>"$work/in" 4<"$work/out"
  output=
  while IFS= read -r line <&4; do
    output+=${output:+$'\n'}$line
    # shellcheck disable=SC2053
    if [ "$act" != none ] && [[ $line == $pattern ]]; then
      if [ "$act" = Enter ]; then echo >&3; else kill "-$act" $pid; fi
      act=none
    fi
  done
  wait $pid
  # shellcheck disable=SC2034
  code=$?
  exec 3>&- 4<&-
  rm "$work/in" "$work/out"
}
