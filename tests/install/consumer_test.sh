#!/usr/bin/env bash
# consumer_test.sh PREFIX LIBRARY_FOLDER: a project outside the tree finds the SDK installed under PREFIX,
# builds and runs, with CMake and with pkg-config. CC, CXX and GENERATOR are the build's; so is HIDAPI_BACKEND,
# hidraw if it is not set.
. "$(dirname "$0")/testing.sh"
prefix=$1
libraries=$1/$2
hidapi=libhidapi-${HIDAPI_BACKEND:-hidraw}.so.0
source=$(cd "$(dirname "$0")/consumer" && pwd)
readme=$(cd "$(dirname "$0")/../.." && pwd)/README.md

facade="0 1 0 0

8192 16384 64 1
24575 8192 127 1
24575 8192 0 0
0"
flat="Vela USB 0
Vela II 1
Vela Ink 0
Vela Vision 0
0"

if ! {
  cmake -S "$source" -B "$work/build" -G "$GENERATOR" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_BUILD_TYPE=Debug && cmake --build "$work/build"
} >"$work/log" 2>&1; then
  cat "$work/log"
  exit 1
fi
run() { # COMMAND...
  on_pads ii "$@" 2>&1
  echo "$?"
}
expect "find_package, shared" "$facade" "$(run "$work/build/facade-shared")"
expect "find_package, static" "$facade" "$(run "$work/build/facade-static")"
expect "find_package, flat" "$flat" "$(run "$work/build/flat")"

needed() { # PROGRAM: prints which of our libraries it loads
  objdump -p "$1" | sed -n 's/^ *NEEDED *\(lib\(gIIVela\|velawrap\|hidapi\).*\)/\1/p' | xargs
}
expect "shared" "libgIIVela.so.1" "$(needed "$work/build/facade-shared")"
expect "static" "$hidapi" "$(needed "$work/build/facade-static")"
expect "flat" "libvelawrap.so.1" "$(needed "$work/build/flat")"

command -v pkg-config >/dev/null || skip "pkg-config is not installed; find_package was tried"
export PKG_CONFIG_PATH=$libraries/pkgconfig
expect "version" "1.0.0 1.0.0" "$(pkg-config --modversion gIIVela velawrap | xargs)"
# shellcheck disable=SC2046
{
  $CXX -std=c++20 "$source/facade.cpp" $(pkg-config --cflags --libs gIIVela) \
    -Wl,-rpath,"$libraries" -o "$work/facade-shared"
  $CXX -std=c++20 "$source/facade.cpp" -o "$work/facade-static" \
    $(pkg-config --static --cflags --libs gIIVela | sed 's/-lgIIVela/-l:libgIIVela.a/')
  $CC -std=c11 "$source/flat.c" $(pkg-config --cflags --libs velawrap) \
    -Wl,-rpath,"$libraries" -o "$work/flat"
  sed -n '/^```cpp$/,/^```$/p' "$readme" | sed '1d;$d' | $CXX -std=c++20 -x c++ - -x none \
    $(pkg-config --cflags --libs gIIVela) -Wl,-rpath,"$libraries" -o "$work/readme-cpp"
  sed -n '/^```c$/,/^```$/p' "$readme" | sed '1d;$d' | $CC -std=c11 -x c - -x none \
    $(pkg-config --cflags --libs velawrap) -Wl,-rpath,"$libraries" -o "$work/readme-c"
} || exit 1
expect "pkg-config, shared" "$facade" "$(run "$work/facade-shared")"
expect "pkg-config, static" "$facade" "$(run "$work/facade-static")"
expect "pkg-config, flat" "$flat" "$(run "$work/flat")"
expect "shared" "libgIIVela.so.1" "$(needed "$work/facade-shared")"
expect "static" "$hidapi" "$(needed "$work/facade-static")"
for language in cpp c; do
  expect "the README's program in $language without a pad" "No Vela USB is attached. 1" \
    "$(on_pads ink "$work/readme-$language" 2>&1) $?"
done
finish
