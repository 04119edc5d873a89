#!/usr/bin/env bash
# The decisions of run-on-kernel before it boots anything. The tools that it uses are stand-ins.
cd "$(dirname "$0")/../.." || exit
. tests/testing.sh
program=$PWD/tests/kernel/run-on-kernel
cd "$work" || exit

stand_in() { # NAME COMMAND
  printf '#!/bin/sh\n%s\n' "$2" >"bin/$1"
  chmod +x "bin/$1"
}

mkdir bin
PATH=$work/bin:$PATH
stand_in id 'echo 1000'
stand_in uname 'echo Linux x86_64'
for tool in qemu-system-x86_64 busybox cpio modprobe xz zstd apt-get; do
  stand_in $tool "echo $tool is called; exit 1"
done

expect_end() { # WHAT STATUS LAST_LINE COMMAND...
  local what=$1 status=$2 line=$3
  shift 3
  "$@" >out 2>&1
  expect "$what" "status $status: $line" "status $?: $(tail -n 1 out)"
}

skipped='SKIPPED: /dev/uhid is not usable here, and no guest can be booted:'
no_kernel="$skipped apt knows no linux-image-amd64 (Debian has it; sudo apt-get update fetches the lists)"

stand_in apt-cache 'echo "E: No packages found" >&2; exit 100'
expect_end "apt fails" 77 "$no_kernel" "$program" . 5 echo ran
stand_in apt-cache 'echo linux-image-amd64'
expect_end "a kernel that depends on nothing" 77 "$no_kernel" "$program" . 5 echo ran
stand_in apt-cache 'printf "linux-image-amd64\n  Depends: linux-image-1\n  Depends: linux-image-2\n"'
stand_in apt-get 'echo "E: no network" >&2; exit 100'
expect_end "the packages can't be had" 77 "$skipped linux-image-amd64 linux-image-1 linux-image-2 could not be downloaded: E: no network" \
  "$program" . 5 echo ran

# Runs as root with a /dev/uhid, and with that line in /proc/mounts.
# shellcheck disable=SC2317
with_dev() { # LINE
  # shellcheck disable=SC2016
  unshare --user --map-root-user --mount sh -c 'mount -t tmpfs dev /dev && mount -t tmpfs proc /proc &&
    touch /dev/null /dev/uhid && echo "$1" >/proc/mounts && shift && exec "$@"' sh "$@" "$program" . 5 echo ran
}
stand_in id 'echo 0'
stand_in apt-cache 'exit 100'
if unshare --user --map-root-user --mount true 2>/dev/null; then
  expect_end "the kernel's own /dev" 0 ran with_dev 'udev /dev devtmpfs rw 0 0'
  expect_end "a container's /dev" 77 "$no_kernel" with_dev 'tmpfs /dev tmpfs rw 0 0'
  expect_end "a /dev that lies over the kernel's" 77 "$no_kernel" with_dev 'udev /dev devtmpfs rw 0 0
tmpfs /dev tmpfs rw 0 0'
else
  echo "namespaces of its own are refused: not tried where /dev is a container's"
fi

# A kernel in several packages, with a module of each kind of compression and one that is built in. QEMU's stand-in
# lists the files given to the guest's first program, and ends the guest.
module() { # FILE NEEDED_SYMBOL EXPORTED_SYMBOL
  mkdir -p "$(dirname "$1")"
  printf '%s\n' "extern void $2(void); void (*call_$3)(void) = $2;" \
    "__attribute__((section(\"__ksymtab_strings\"))) const char name_$3[] = \"$3\";" |
    "${CC:-cc}" -x c -c -o "$1" -
}
package() { # NAME
  mkdir -p "$1/DEBIAN"
  printf 'Package: %s\nVersion: 1\nArchitecture: all\nMaintainer: nobody\nDescription: none\n' "$1" >"$1/DEBIAN/control"
  dpkg-deb --build "$1" "$1_1_all.deb" >/dev/null
}
try_split_kernel() {
  local modules=linux-modules-1/usr/lib/modules/1.0.0-vela tool aborts
  rm bin/{cpio,modprobe,xz,zstd}
  PATH=$PATH:/usr/sbin:/sbin
  for tool in "${CC:-cc}" dpkg-deb depmod modprobe xz zstd cpio; do
    command -v "$tool" >/dev/null || {
      echo "$tool is not installed: not tried with packages"
      return
    }
  done
  mkdir packages
  cd packages || exit
  module $modules/kernel/a/9pnet.ko builtin_symbol of_9pnet
  module $modules/kernel/b/9p.ko of_9pnet of_9p
  module $modules/kernel/c/9pnet_virtio.ko of_9pnet of_9pnet_virtio
  module $modules/kernel/d/hid.ko builtin_symbol of_hid
  module $modules/kernel/d/hid-generic.ko of_hid of_hid_generic
  module $modules/kernel/d/uhid.ko of_hid of_uhid
  module $modules/kernel/d/other.ko of_hid of_other
  for what in 9p hid; do cp $modules/kernel/*/$what.ko $what.plain; done
  xz $modules/kernel/*/{9p,uhid}.ko
  zstd --quiet --rm $modules/kernel/*/hid.ko
  echo kernel/e/virtio_pci.ko >$modules/modules.builtin
  : >$modules/modules.order
  printf 'virtio_pci.license=GPL\0' >$modules/modules.builtin.modinfo
  mkdir -p linux-binary-1/usr/lib/modules/1.0.0-vela
  echo image >linux-binary-1/usr/lib/modules/1.0.0-vela/vmlinuz
  for name in linux-image-amd64 linux-image-1 linux-binary-1 linux-modules-1; do package $name; done
  cd ..
  stand_in apt-cache 'case $2 in
    linux-image-amd64) printf "  Depends: linux-image-1\n" ;;
    linux-image-1) printf " PreDepends: kmod\n |Depends: linux-initramfs\n  Depends: linux-binary-1\n  Depends: linux-modules-1\n" ;;
    linux-modules-1) printf "  Depends: linux-image-1\n" ;;
    esac'
  stand_in apt-get "shift; for name; do cp '$work/packages/'\${name}_1_all.deb .; done"
  stand_in busybox :
  # shellcheck disable=SC2016
  stand_in qemu-system-x86_64 'while [ $# -gt 0 ]; do
      [ "$1" != -initrd ] || initrd=$2
      [ "$1" != -kernel ] || kernel=$2
      shift
    done
    mkdir seen && (cd seen && cpio --quiet -i <"$initrd") && cp "$kernel" seen/vmlinuz && echo 0 >status'
  expect_end "a kernel in several packages" 0 "run-on-kernel: a guest, emulated by QEMU without KVM" \
    "$program" . 5 echo ran
  expect_end "its image" 0 image cat seen/vmlinuz
  expect_end "its modules in their order" 0 "9pnet 9pnet_virtio 9p hid hid-generic uhid" xargs -a seen/modules/order
  expect_end "its modules" 0 "9p.ko 9pnet.ko 9pnet_virtio.ko hid-generic.ko hid.ko order uhid.ko" \
    sh -c 'cd seen/modules && echo *'
  expect_end "what was compressed by xz" 0 "" cmp packages/9p.plain seen/modules/9p.ko
  expect_end "what was compressed by zstd" 0 "" cmp packages/hid.plain seen/modules/hid.ko

  # An image that QEMU can start itself, packed behind two sectors. The fields of the header: setup_sects 1,
  # payload_offset 0, payload_length.
  printf '%s\n' '.section .note.Xen, "a", @note' '.long 4, 4, 0x12' '.asciz "Xen"' '.long 0' |
    "${CC:-cc}" -x assembler -c -o image.o -
  local length
  for tool in xz zstd; do
    $tool --quiet --stdout image.o >payload
    printf 'size' >>payload
    length=$(stat -c %s payload)
    head -c 1024 /dev/zero >guest-kernel/vmlinuz
    printf '\001' | dd of=guest-kernel/vmlinuz bs=1 seek=497 conv=notrunc status=none
    # shellcheck disable=SC2059
    printf "$(printf '\\%03o' 0 0 0 0 $((length % 256)) $((length / 256)))" |
      dd of=guest-kernel/vmlinuz bs=1 seek=584 conv=notrunc status=none
    cat payload >>guest-kernel/vmlinuz
    rm -r seen guest-kernel/image
    "$program" . 5 echo ran >out 2>&1
    expect_end "an image that was packed by $tool" 0 "" cmp image.o seen/vmlinuz
  done

  # shellcheck disable=SC2016
  aborts='echo boot >>boots; : >console.log; echo Assertion >&2; ulimit -c 0; kill -ABRT $$'
  # shellcheck disable=SC2016
  stand_in qemu-system-x86_64 "[ ! -f boots ] || [ \$(wc -l <boots) -lt 2 ] || { echo 5 >status; exit 0; }; $aborts"
  expect_end "QEMU aborts twice before the command starts" 5 \
    "run-on-kernel: QEMU aborted before the command started, attempt 2 of 3: Assertion" "$program" . 5 echo ran

  rm boots
  stand_in qemu-system-x86_64 "$aborts"
  expect_end "QEMU aborts at every start" 1 Assertion "$program" . 5 echo ran
  expect_end "the starts" 0 3 sh -c 'wc -l <boots'

  rm boots
  stand_in qemu-system-x86_64 "touch started; $aborts"
  expect_end "QEMU aborts while the command runs" 1 Assertion "$program" . 5 echo ran
  expect_end "the one start" 0 1 sh -c 'wc -l <boots'
}
try_split_kernel

finish
