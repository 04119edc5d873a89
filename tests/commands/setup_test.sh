#!/usr/bin/env bash
# Tests the decisions of scripts/setup.sh about releases and missing packages. Installs nothing: the package
# managers are stand-ins.
cd "$(dirname "$0")/../.." || exit
. tests/testing.sh
command_name=name
. scripts/setup.sh

expect "nothing is missing" "" "$(without "a b" "b
a c")"
expect "a part of a name is not the name" "libb " "$(without "a libb" "a libb-dev xlibb")"

# refused NAME VERSION: the message on that release.
refused() {
  printf 'PRETTY_NAME="%s %s"\nID=%s\n%s\n' "$1" "$2" "$1" "${2:+VERSION_ID=\"$2\"}" >"$work/os-release"
  (refuse_old_release "$work/os-release" && echo goes on) 2>&1
}
needed="name: this needs Debian 12 or Ubuntu 24.04, or a later release; here is"
expect "Debian 11" "$needed debian 11" "$(refused debian 11)"
expect "Debian 12" "goes on" "$(refused debian 12)"
expect "Debian 13" "goes on" "$(refused debian 13)"
expect "a Debian that has no number yet" "goes on" "$(refused debian "")"
expect "Ubuntu 9.10" "$needed ubuntu 9.10" "$(refused ubuntu 9.10)"
expect "Ubuntu 22.04" "$needed ubuntu 22.04" "$(refused ubuntu 22.04)"
expect "Ubuntu 23.10" "$needed ubuntu 23.10" "$(refused ubuntu 23.10)"
expect "Ubuntu 24.04" "goes on" "$(refused ubuntu 24.04)"
expect "another system" "goes on" "$(refused other 1)"
expect "a system that does not name itself" "goes on" \
  "$( (refuse_old_release "$work/none" && echo goes on) 2>&1)"

# apt on a machine where only one package is missing, as root and as a user without sudo.
dpkg-query() { printf 'installed alpha\nconfig-files beta\ninstalled gamma\n'; }
id() { echo "$user_id"; }
apt-get() { echo "apt-get $1" >&2; }
env() { shift && "$@"; }
command() { [ "$2" != sudo ] && builtin command "$@"; }

user_id=0
expect "everything is there" "name: all needed packages are installed" \
  "$(install_with_apt "alpha gamma" 2>&1)"
expect "root installs what is missing" "name: installing: beta 
apt-get update
apt-get install" "$(install_with_apt "alpha beta" 2>&1)"
user_id=1000
expect "without sudo the list is shown" "name: as root, please install: beta " \
  "$(install_with_apt "alpha beta" 2>&1)"
apt-get() { return 100; }
user_id=0
expect "no network" "name: installing: beta 
name: apt-get update failed; still missing: beta " "$(install_with_apt "alpha beta" 2>&1)"

finish
