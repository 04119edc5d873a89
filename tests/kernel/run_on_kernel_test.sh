#!/usr/bin/env bash
# What run-on-kernel decides before it boots anything. The tools that it would use are stand-ins.
set -u
program=$(dirname "$(realpath "$0")")/run-on-kernel
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch" || exit 1
failures=0

stand_in() { # NAME COMMAND
  printf '#!/bin/sh\n%s\n' "$2" >"bin/$1"
  chmod +x "bin/$1"
}

mkdir bin
PATH=$scratch/bin:$PATH
stand_in id 'echo 1000'
stand_in uname 'echo Linux x86_64'
for tool in qemu-system-x86_64 busybox cpio apt-get; do
  stand_in $tool "echo $tool is called; exit 1"
done

expect() { # WHAT STATUS LAST_LINE COMMAND...
  local what=$1 status=$2 line=$3
  shift 3
  "$@" >out 2>&1
  local got=$?
  if [ $got != "$status" ] || [ "$(tail -n 1 out)" != "$line" ]; then
    echo "$what: status $got, not $status; it says"
    cat out
    failures=1
  fi
}

skipped='SKIPPED: /dev/uhid is not usable here, and no guest can be booted:'
no_kernel="$skipped apt knows no linux-image-amd64 (Debian has it; sudo apt-get update fetches the lists)"

stand_in apt-cache 'echo "E: No packages found" >&2; exit 100'
expect "apt fails" 77 "$no_kernel" "$program" . 5 echo ran
stand_in apt-cache 'echo linux-image-amd64'
expect "a kernel that depends on nothing" 77 "$no_kernel" "$program" . 5 echo ran
stand_in apt-cache 'printf "linux-image-amd64\n  Depends: linux-image-1\n  Depends: linux-image-2\n"'
stand_in apt-get 'echo "E: no network" >&2; exit 100'
expect "the package can't be had" 77 "$skipped linux-image-1 could not be downloaded: E: no network" \
  "$program" . 5 echo ran

# Root with a /dev/uhid, and with that line in /proc/mounts.
# shellcheck disable=SC2317
with_dev() { # LINE
  # shellcheck disable=SC2016
  unshare --user --map-root-user --mount sh -c 'mount -t tmpfs dev /dev && mount -t tmpfs proc /proc &&
    touch /dev/null /dev/uhid && echo "$1" >/proc/mounts && shift && exec "$@"' sh "$@" "$program" . 5 echo ran
}
stand_in id 'echo 0'
stand_in apt-cache 'exit 100'
if unshare --user --map-root-user --mount true 2>/dev/null; then
  expect "the kernel's own /dev" 0 ran with_dev 'udev /dev devtmpfs rw 0 0'
  expect "a container's /dev" 77 "$no_kernel" with_dev 'tmpfs /dev tmpfs rw 0 0'
  expect "a /dev that lies over the kernel's" 77 "$no_kernel" with_dev 'udev /dev devtmpfs rw 0 0
tmpfs /dev tmpfs rw 0 0'
else
  echo "namespaces of its own are refused: not tried where /dev is a container's"
fi

exit $failures
