# shellcheck shell=bash
# Functions shared by the tests of installed files.
. "$(dirname "${BASH_SOURCE[0]}")/../testing.sh"

# The list of libraries to preload has blanks between them, so none may have one in its path.
if [ -n "${PRELOAD:-}" ]; then
  ln -s "$PRELOAD" "$work/attached_pads.so"
  PRELOAD=$work/attached_pads.so
fi

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

# The name of a program whose usage starts with "usage: NAME". The file may have another name.
name_in() { # USAGE
  cut -d " " -f 2 <<<"$1"
}

# expect_refused PROGRAM USAGE COMPLAINT ARGUMENT...: the program refuses these arguments.
expect_refused() {
  local program=$1 usage=$2 complaint=$3
  shift 3
  expect "$*" "$(name_in "$usage"): $complaint
$usage
2" "$("$program" "$@" 2>&1; echo $?)"
}

# expect_help PROGRAM USAGE: the options that all tools have.
expect_help() {
  local option
  for option in -h --help; do
    expect "$option" "$2 0" "$("$1" $option | head -n 1) ${PIPESTATUS[0]}"
  done
  expect "the version" "$(name_in "$2") 1.0.0 0" "$("$1" --version) $?"
}
