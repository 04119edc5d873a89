#!/usr/bin/env bash
# symbols_test.sh LIBRARY LIST: the library exports exactly the symbols in the Debian package's list. Symbols
# of the C++ library are left out, because they depend on the compiler.
. "$(dirname "$0")/testing.sh"
command -v nm >/dev/null || skip "nm is not installed"
nm -D --defined-only "$1" | awk '$3 !~ /^_ZN?K?(S|9__gnu_cxx)/ { print $3 }' | c++filt | LC_ALL=C sort -u \
  >"$work/symbols"
sed -nE 's/^ (\(c\+\+\)")?([^"@]+)@.*/\2/p' "$2" | LC_ALL=C sort -u >"$work/listed"
diff -u "$work/listed" "$work/symbols" || exit 1
echo "$(wc -l <"$work/symbols") symbols as listed"
