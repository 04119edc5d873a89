# shellcheck shell=bash
# Bare Debian trees, which contain nothing of this machine, for tests/releases/check-on and
# packaging/check-packages. They source this file after setup.sh. Needs root.

# Keeps the trees that debootstrap made, one for each release; every tree in use is a copy.
trees=${VELA_TREES:-${XDG_CACHE_HOME:-$HOME/.cache}/vela-trees}

# open_tree RELEASE: makes a bare tree of the release in $tree. It is removed when the script ends.
open_tree() {
  local base=$trees/$1
  mkdir -p "$trees"
  # If two scripts start at the same time, the first one makes the base.
  exec 8>"$base.lock"
  flock 8
  [ -d "$base" ] || make_base "$1"
  exec 8>&-
  tree=$(mktemp -d "$base.XXXXXX")
  trap close_tree EXIT
  cp -a "$base/." "$tree"
  mount -t proc proc "$tree/proc"
  mount -t sysfs sys "$tree/sys"
  mount --rbind /dev "$tree/dev"
  mount --make-rslave "$tree/dev"
}

make_base() {
  local base=$trees/$1 mirror
  command -v debootstrap >/dev/null || stop "debootstrap is not installed"
  say "making a bare tree of $1, which is kept in $base"
  # The mirror that this machine uses, if it runs Debian.
  mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Label: Debian' | head -n 1)
  rm -rf "$base.new"
  debootstrap --variant=minbase "$1" "$base.new" ${mirror:+"$mirror"} >"$base.log" 2>&1 ||
    stop "debootstrap failed, see $base.log"
  # This machine's settings for reaching its packages, if there are any.
  cp /etc/apt/apt.conf.d/99* "$base.new/etc/apt/apt.conf.d/" 2>/dev/null || true
  mv "$base.new" "$base"
}

close_tree() {
  local mounted
  for mounted in proc sys dev; do
    if mountpoint -q "$tree/$mounted"; then umount -l "$tree/$mounted"; fi
  done
  rm -rf --one-file-system "$tree"
}

# in_tree COMMAND...: runs the command in $tree.
in_tree() {
  chroot "$tree" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@"
}
