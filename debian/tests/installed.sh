# shellcheck shell=bash
# What the tests of the packages share. Sourced; they run the scripts of tests/install/ on what the packages
# installed, with a library of virtual pads that is loaded before the distribution's hidapi.
set -eu
tests=$PWD/tests/install
export LANG=C.UTF-8 CC=cc CXX=c++ GENERATOR="Unix Makefiles" PRELOAD=$AUTOPKGTEST_TMP/attached_pads.so
read -ra hidapi < <(pkg-config --cflags hidapi-hidraw)
$CXX -std=c++20 -fPIC -shared -pthread -I. "${hidapi[@]}" tests/install/AttachedPads.cpp virtualpads/*Pad*.cpp \
  virtualpads/hidapi/*.cpp -o "$PRELOAD"
