#!/usr/bin/env bash
# vela_virtual_pad_test.sh PROGRAM: the program's output and exit status before it plugs anything in.
set -u
program=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
export QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=$scratch
failures=0

# expect STATUS STANDARD_ERROR ARGUMENT...
expect() {
  local status=$1 error=$2
  shift 2
  "$program" "$@" >out 2>err
  local got=$?
  if [ $got != "$status" ] || [ "$(cat err)" != "$error" ]; then
    echo "vela-virtual-pad $*: status $got, not $status; standard error is"
    cat err
    failures=1
  fi
}

usage='usage: vela-virtual-pad usb|ii|ink|vision [--usb] [--replay FILE | --record FILE]'
head=$'R: 1 06\nN: Vela Ink\nI: 3 04df 0030\n'

expect 0 '' --help
[ "$(head -n 1 out)" = "$usage" ] || { echo "--help prints no usage"; failures=1; }
expect 0 '' --version
grep -qx 'vela-virtual-pad [0-9.]*' out || { echo "--version prints no version"; failures=1; }
expect 2 "vela-virtual-pad: missing pad
$usage"
expect 2 "vela-virtual-pad: unknown pad 'pen'
$usage" pen

expect 1 'vela-virtual-pad: missing.hid: No such file or directory' ink --replay missing.hid
echo 'E: ' >bad.hid
expect 1 'vela-virtual-pad: bad.hid: line 1, column 1: the R: line is missing' ink --replay bad.hid
printf '%s' "$head" >ink.hid
expect 1 'vela-virtual-pad: ink.hid: recorded from another device, 04df:0030' usb --replay ink.hid

# The lines before the last one come from the toolkit.
echo precious >kept.hid
env -u QT_QPA_PLATFORM -u DISPLAY -u WAYLAND_DISPLAY -u WAYLAND_SOCKET -u XDG_SESSION_TYPE \
  "$program" ink --record kept.hid >out 2>err
got=$?
if [ $got != 1 ] ||
  [ "$(tail -n 1 err)" != 'vela-virtual-pad: no display for the window; --replay works without one' ]; then
  echo "without a display: status $got, not 1; standard error is"
  cat err
  failures=1
fi
[ ! -s out ] || { echo "a pad is plugged without a display"; failures=1; }
[ "$(cat kept.hid)" = precious ] || { echo "the recording is emptied without a display"; failures=1; }

# If the device exists, tests/kernel covers the rest.
if [ ! -e /dev/uhid ]; then
  missing='/dev/uhid is missing; to load its kernel module, run: sudo modprobe uhid'
  expect 1 "vela-virtual-pad: $missing" ink --replay ink.hid
  expect 1 "vela-virtual-pad: $missing" ink
  expect 1 "vela-virtual-pad: $missing" ink --record kept.hid
  [ "$(cat kept.hid)" = precious ] || { echo "the recording is emptied without a pad"; failures=1; }
fi

if [ ! -e /sys/devices/platform/vhci_hcd.0 ] && ! modinfo vhci-hcd >/dev/null 2>&1; then
  expect 1 "vela-virtual-pad: the kernel's virtual USB host controller is missing; root loads its module: modprobe vhci-hcd" \
    ink --usb --replay ink.hid
fi

exit $failures
