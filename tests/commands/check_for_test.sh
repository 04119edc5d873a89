#!/usr/bin/env bash
# How tests/releases/check-for handles its argument, and which failures it returns. Installs and builds
# nothing: the commands it calls are stand-ins on the PATH.
cd "$(dirname "$0")/../.." || exit
. tests/testing.sh
mkdir -p "$work/bin" "$work/tests/releases"
cp -r scripts "$work"
cp tests/releases/check-for "$work/tests/releases"
cd "$work" || exit
export PATH=$work/bin:$PATH ASKED=$work/asked FAILING=

for name in apt-get cmake ctest; do
  printf '#!/bin/sh\necho "%s $*" >>"$ASKED"\n[ "%s $1" != "$FAILING" ]\n' $name $name >"bin/$name"
done
echo 'echo 0' >bin/id
: >bin/dpkg-query
chmod +x bin/*

check_for() { # ARGUMENT...: sets $status and $asked
  : >"$ASKED"
  tests/releases/check-for "$@" >said 2>&1
  status=$?
  asked=$(cut -d ' ' -f 1-3 "$ASKED" | xargs)
}

check_for
expect "without a target" "2 usage: check-for arm64|armhf|s390x|libcxx" "$status $(cat said)"
check_for riscv64
expect "an unknown target" "2 usage: check-for arm64|armhf|s390x|libcxx" "$status $(cat said)"
check_for arm64 s390x
expect "two targets" "2 usage: check-for arm64|armhf|s390x|libcxx" "$status $(cat said)"
expect "nothing is done then" "" "$asked"

for target in arm64 armhf s390x libcxx; do
  check_for $target
  expect "$target" "0 apt-get update -qq apt-get install -y cmake --preset $target cmake --build --preset \
ctest --preset $target" "$status $asked"
done
for FAILING in "apt-get install" "cmake --preset" "cmake --build" "ctest --preset"; do
  check_for s390x
  expect "a failure of $FAILING" "1 $FAILING" "$status $(tail -n 1 "$ASKED" | cut -d ' ' -f 1-2)"
done

finish
