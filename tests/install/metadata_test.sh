#!/usr/bin/env bash
# metadata_test.sh WHAT PREFIX: the files under PREFIX for the desktop, the device manager and the manual.
. "$(dirname "$0")/testing.sh"
prefix=$2
share=$2/share

desktop() {
  local entry=$share/applications/vela-testapp.desktop size
  command -v desktop-file-validate >/dev/null || skip "desktop-file-validate is not installed"
  expect "desktop-file-validate" "" "$(desktop-file-validate "$entry" 2>&1)"
  [ -x "$prefix/bin/$(sed -n 's/^Exec=//p' "$entry")" ]
  expect "its program is there" 0 $?
  for size in 16 24 32 48 64 128 256; do
    # A PNG file has its width and height from byte 16 on.
    expect "icon of $size pixels" "$size $size" "$(od --endian=big -An -tu4 -j16 -N8 \
      "$share/icons/hicolor/${size}x$size/apps/$(sed -n 's/^Icon=//p' "$entry").png" | xargs)"
  done
  expect "the drawing" "<svg" "$(head -c 4 "$share/icons/hicolor/scalable/apps/vela-testapp.svg")"
}

appstream() {
  local file=$share/metainfo/org.example.vela.testapp.metainfo.xml
  command -v appstreamcli >/dev/null || skip "appstreamcli is not installed"
  # The only defect: the owner has not chosen a licence, nor one for the metadata. Versions from 1.0 on also
  # want a home page and the developer, which do not exist.
  expect "appstreamcli validate" "E: org.example.vela.testapp:~: metadata-license-missing" \
    "$(appstreamcli validate --no-net --pedantic "$file" 2>&1 | grep '^[EWIP]:' |
      grep -v -e url-homepage-missing -e developer-info-missing)"
  expect "its desktop entry is there" "vela-testapp.desktop" "$(ls "$share/applications")"
  expect "its devices" "usb:v04DFp0012d* usb:v04DFp001Fd* usb:v04DFp0030d* usb:v04DFp0038d*" \
    "$(sed -n 's,.*<modalias>\(.*\)</modalias>,\1,p' "$file" | xargs -d '\n')"
}

udev() {
  local rules=$prefix/lib/udev/rules.d
  expect "a name before 73, where the tag is acted on" "70-vela-pads.rules 73" \
    "$(printf '%s\n' "$(ls "$rules" | grep vela)" 73 | LC_ALL=C sort | xargs)"
  expect "the rules for HID nodes" 'SUBSYSTEM=="hidraw", KERNELS=="0003:04DF:0012.*", TAG+="uaccess"
SUBSYSTEM=="hidraw", KERNELS=="0003:04DF:001F.*", TAG+="uaccess"
SUBSYSTEM=="hidraw", KERNELS=="0003:04DF:0030.*", TAG+="uaccess"
SUBSYSTEM=="hidraw", KERNELS=="0003:04DF:0038.*", TAG+="uaccess"' "$(grep '^SUBSYSTEM=="hidraw"' "$rules"/*vela*)"
  local usb=
  [ "${HIDAPI_BACKEND:-hidraw}" = hidraw ] ||
    usb='SUBSYSTEM=="usb", ATTR{idVendor}=="04df", ATTR{idProduct}=="0012", TAG+="uaccess"
SUBSYSTEM=="usb", ATTR{idVendor}=="04df", ATTR{idProduct}=="001f", TAG+="uaccess"
SUBSYSTEM=="usb", ATTR{idVendor}=="04df", ATTR{idProduct}=="0030", TAG+="uaccess"
SUBSYSTEM=="usb", ATTR{idVendor}=="04df", ATTR{idProduct}=="0038", TAG+="uaccess"'
  expect "other rules" "$usb" "$(grep '^[^#]' "$rules"/*vela* | grep -v '^SUBSYSTEM=="hidraw"')"
  if udevadm verify --help >/dev/null 2>&1; then
    expect "udevadm verify" "0" "$(udevadm verify "$rules"/*vela*.rules >"$work/log" 2>&1; echo $?)"
  else
    echo "there is no udevadm verify here; the rules were compared with what they should be"
  fi
}

manual() {
  local page
  # Minimal systems have a stand-in for it.
  man --version 2>/dev/null | grep -q '^man [0-9]' || skip "man is not installed"
  for page in vela-testapp vela-padinfo vela-capture vela-virtual-pad; do
    expect "$page" "" "$(man --warnings -E UTF-8 -l "$share/man/man1/$page.1"* 2>&1 >"$work/page")"
    expect "the name in $page" "1" "$(grep -c "^ *$page [-‐−] " "$work/page")"
    expect "$page is there" "0" "$([ -x "$prefix/bin/$page" ]; echo $?)"
  done
  for page in padinfo capture virtual-pad; do
    man -l "$share/man/man1/vela-$page.1"* 2>/dev/null | col -b >"$work/page"
    expect "the options of vela-$page.1 and of its --help" \
      "$("$prefix/bin/vela-$page" --help | grep -o -- '--[a-z]*' | sort -u)" \
      "$(sed -n '/^OPTIONS/,/^EXIT STATUS/p' "$work/page" | grep -o -- '--[a-z]*' | sort -u)"
  done
}

modes() {
  expect "folders that are not open to everybody" "" "$(find "$prefix" -type d ! -perm 755)"
  expect "files that not everybody may read" "" "$(find "$prefix" -type f ! -perm -444)"
}

"$1"
finish
