# shellcheck shell=bash
# What the tests of the packages share. Sourced; they run the scripts of tests/install/ on what the packages
# installed, with a library of virtual pads that is loaded before the distribution's hidapi.
set -eu
tests=$PWD/tests/install
build=$AUTOPKGTEST_TMP/build
export LANG=C.UTF-8 CC=cc CXX=c++ GENERATOR="Unix Makefiles" PRELOAD=$build/tests/install/libattached_pads.so
cmake -S . -B "$build" -G "$GENERATOR" -DVELA_APPLICATION=OFF
cmake --build "$build" --target attached_pads --parallel "$(nproc)"
