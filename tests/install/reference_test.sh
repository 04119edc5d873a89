#!/usr/bin/env bash
# reference_test.sh DOXYFILE: the API reference is generated without a warning, and every function has a
# description of its own.
. "$(dirname "$0")/testing.sh"
command -v doxygen >/dev/null || skip "doxygen is not installed"
cd "$work" || exit 1
reference() { # ADDED_SETTINGS: prints the warnings of doxygen
  { cat "$doxyfile"; printf 'OUTPUT_DIRECTORY = .\n%s\n' "$1"; } | doxygen - 2>&1
}
doxyfile=$1

expect "no warnings" "" "$(reference "")"
expect "it was written" "yes" "$([ -s html/classgIIVela.html ] && echo yes)"
expect "functions without a word" "" "$(reference "EXTRACT_ALL = NO" | grep '(function)')"
finish
