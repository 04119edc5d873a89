#!/usr/bin/env bash
# What check-on does around the command: the base tree that is created once, the copy that is removed, the clone,
# the exit status. Commands that need root or a network are stand-ins on the PATH.
program=$(dirname "$(realpath "$0")")/check-on
. "$(dirname "$0")/../testing.sh"
cd "$work" || exit 1
mkdir bin
export PATH=$work/bin:$PATH VELA_TREES=$work/trees ASKED=$work/asked

stand_in() { # NAME: a script, given on standard input
  { echo '#!/bin/sh' && cat; } >"bin/$1"
  chmod +x "bin/$1"
}
stand_in id <<<'echo 0'
stand_in apt-get <<<'echo mirror:/debian'
stand_in debootstrap <<'END'
echo "debootstrap $*" >>"$ASKED"
mkdir -p "$3/etc/apt/apt.conf.d"
END
stand_in mount <<'END'
for last; do :; done
echo "mount ${last##*/}" >>"$ASKED"
END
stand_in mountpoint <<<'exit 0'
stand_in umount <<'END'
echo "umount ${2##*/}" >>"$ASKED"
END
stand_in git <<'END'
echo "git $1 $2 $3" >>"$ASKED"
mkdir "$4" && echo "$4" >"$4/here"
END
# The command runs here, in the tree's folder.
stand_in chroot <<'END'
cd "$1" && shift
while [ "$1" != sh ]; do shift; done
script=$(echo "$3" | sed 's,/src,src,')
shift 3
exec sh -c "$script" "$@"
END

check_on() { # ARGUMENT...: sets $status, $said and $asked
  : >"$ASKED"
  said=$("$program" "$@" 2>&1)
  status=$?
  asked=$(xargs <"$ASKED")
}

check_on
expect "without arguments" "1 check-on: usage: check-on RELEASE [COMMAND [ARGUMENT...]]" "$status $said"

used='mount proc mount sys mount dev mount dev git clone -q . umount proc umount sys umount dev'
check_on trixie sh -c 'cat here; echo "$1"; exit 3' sh 'two  words'
expect "the command's exit status" 3 $status
expect "the first time" "debootstrap --variant=minbase trixie $work/trees/trixie.new mirror:/debian $used" "$asked"
expect "the first message" "check-on: making a bare tree of trixie, which is kept in $work/trees/trixie" \
  "$(head -n 1 <<<"$said")"
tree=$(dirname "$(sed -n 3p <<<"$said")")
expect "the command is in the clone, in a copy of the base" "$work/trees" "$(dirname "$tree")"
expect "its argument" "two  words" "$(sed -n 4p <<<"$said")"
expect "the last message" "check-on: on trixie: ended with 3" "$(tail -n 1 <<<"$said")"
expect "the remaining files" "trixie trixie.lock trixie.log" "$(find trees -mindepth 1 -maxdepth 1 -printf '%f\n' | sort | xargs)"
expect "the base" "" "$(find trees/trixie -name src)"

check_on trixie true
expect "the second time" "0 $used" "$status $asked"

stand_in git <<<'mkdir "$4" && for name in run check; do printf "#!/bin/sh\necho $name\n" >"$4/$name"; chmod +x "$4/$name"; done'
check_on trixie
expect "without a command" "0 run check" "$status $(sed -n '2,3p' <<<"$said" | xargs)"

stand_in debootstrap <<<'exit 1'
check_on sid true
expect "a tree that cannot be made" "1 check-on: debootstrap failed, see $work/trees/sid.log" \
  "$status $(tail -n 1 <<<"$said")"
expect "its remaining files" "" "$(find trees -name 'sid' -o -name 'sid.??????')"

stand_in id <<<'echo 1000'
check_on trixie true
expect "without root" "1 check-on: needs root, for the bare tree" "$status $said"

finish
