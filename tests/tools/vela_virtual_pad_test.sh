#!/usr/bin/env bash
# vela_virtual_pad_test.sh PROGRAM: the program's output and exit status before it plugs anything in.
. "$(dirname "$0")/../testing.sh"
program=$1
cd "$work" || exit 1
export QT_QPA_PLATFORM=offscreen XDG_RUNTIME_DIR=$work

# expect_end STATUS STANDARD_ERROR ARGUMENT...: standard output is then in the file out.
expect_end() {
  local status=$1 error=$2
  shift 2
  expect "$*" "$error
$status" "$("$program" "$@" 2>&1 >out; echo $?)"
}

usage='usage: vela-virtual-pad usb|ii|ink|vision [--usb] [--replay FILE | --record FILE]'
head=$'R: 1 06\nN: Vela Ink\nI: 3 04df 0030\n'

expect "--help" "$usage 0" "$("$program" --help | head -n 1) ${PIPESTATUS[0]}"
expect "--version" "vela-virtual-pad 1.0.0 0" "$("$program" --version) $?"
expect_end 2 "vela-virtual-pad: missing pad
$usage"
expect_end 2 "vela-virtual-pad: unknown pad 'pen'
$usage" pen

expect_end 1 'vela-virtual-pad: missing.hid: No such file or directory' ink --replay missing.hid
echo 'E: ' >bad.hid
expect_end 1 'vela-virtual-pad: bad.hid: line 1, column 1: the R: line is missing' ink --replay bad.hid
printf '%s' "$head" >ink.hid
expect_end 1 'vela-virtual-pad: ink.hid: recorded from another device, 04df:0030' usb --replay ink.hid

# The lines before the last one come from the toolkit.
echo precious >kept.hid
env -u QT_QPA_PLATFORM -u DISPLAY -u WAYLAND_DISPLAY -u WAYLAND_SOCKET -u XDG_SESSION_TYPE \
  "$program" ink --record kept.hid >out 2>err
expect "without a display" "1 vela-virtual-pad: no display for the window; --replay works without one" \
  "$? $(tail -n 1 err)"
expect "no pad is plugged without a display" "" "$(cat out)"
expect "the recording without a display" precious "$(cat kept.hid)"

# If the device exists, tests/kernel covers the rest.
if [ ! -e /dev/uhid ]; then
  missing='/dev/uhid is missing; to load its kernel module, run: sudo modprobe uhid'
  expect_end 1 "vela-virtual-pad: $missing" ink --replay ink.hid
  expect_end 1 "vela-virtual-pad: $missing" ink
  expect_end 1 "vela-virtual-pad: $missing" ink --record kept.hid
  expect "the recording without a pad" precious "$(cat kept.hid)"
fi

if [ ! -e /sys/devices/platform/vhci_hcd.0 ] && ! modinfo vhci-hcd >/dev/null 2>&1; then
  expect_end 1 "vela-virtual-pad: the kernel's virtual USB host controller is missing; root loads its module: modprobe vhci-hcd" \
    ink --usb --replay ink.hid
fi
finish
