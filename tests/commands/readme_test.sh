#!/usr/bin/env bash
# The C++ and the C program in README.md compile as printed, the first one equals the example, the pictures
# exist, and all pads are listed.
set -eu
cd "$(dirname "$0")/../.."

program() { # LANGUAGE: the text of the one block in that language
  sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/p" README.md | sed '1d;$d'
}

compile() { # COMPILER STANDARD LANGUAGE
  program "$3" | grep -q main || {
    echo "README.md has no program in $3"
    exit 1
  }
  program "$3" | $1 "-std=$2" -Wall -Wextra -Werror -fsyntax-only -IgIIVela -Itestapp \
    -x "${3/cpp/c++}" -
}

compile c++ c++20 cpp
sed -n '/^#include/,$p' examples/facade.cpp | cmp - <(program cpp) || {
  echo "README.md has another program in C++ than examples/facade.cpp"
  exit 1
}
compile cc c11 c

pictures=$(grep -o '\bdocs/pictures/[a-z-]*\.\(png\|gif\)' README.md)
for picture in $pictures; do
  [ -s "$picture" ] || {
    echo "README.md shows $picture, which is not there"
    exit 1
  }
done

# The table of the pads and the udev rule contain each pad of the list.
grep '^[0-9A-F]' packaging/pads.list | while read -r product class_id _ name; do
  if ! grep -q "^| $name | .*(0x${product#00}) .*$class_id" README.md || ! grep -q "04DF:$product\.\*" README.md; then
    echo "README.md lacks $name, its product id $product or its class id"
    exit 1
  fi
done
