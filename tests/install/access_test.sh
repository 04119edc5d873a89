#!/usr/bin/env bash
# access_test.sh PROGRAM CAPTURE: the tools' messages about a pad whose node may not be opened. The node and
# its entry in /sys are set up in a separate mount namespace; the tools run as nobody.
. "$(dirname "$0")/testing.sh"
padinfo=$1
capture=$2

[ "$(id -u)" = 0 ] || skip "needs root, to set a device node up"
unshare --mount true 2>/dev/null || skip "mount namespaces are not permitted here"
as_nobody="setpriv --reuid=65534 --regid=65534 --clear-groups"
$as_nobody test -x "$padinfo" || skip "the build folder is closed to other users"

mkdir -p "$work/class/hidraw/hidraw7" "$work/class/0003:04DF:001F.0001" "$work/dev"
ln -s ../../0003:04DF:001F.0001 "$work/class/hidraw/hidraw7/device"
touch "$work/dev/hidraw7" "$work/dev/null"
chmod 600 "$work/dev/hidraw7"
chmod 755 "$work"
cat >"$work/inside" <<END
mount --bind /dev/null "$work/dev/null"
mount --rbind "$work/dev" /dev
mount --bind "$work/class" /sys/class
for folder in /etc/udev /usr/lib/udev /usr/local/lib; do
  [ ! -d \$folder ] || mount -t tmpfs none \$folder
done
[ -z "\$RULE" ] || { mkdir -p /usr/local/lib/udev/rules.d && touch \$_/70-vela-pads.rules; }
exec $as_nobody env VELA_PADS=ii LD_PRELOAD="$PRELOAD" "\$@"
END
refused() { # COMMAND...
  RULE=${RULE:-} unshare --mount bash "$work/inside" "$@" 2>&1
  echo "$?"
}

expect "one line, with the rule" "vela-padinfo: Vela II: no permission to open /dev/hidraw7; to get it, run: echo 'SUBSYSTEM==\"hidraw\", KERNELS==\"0003:04DF:0012.*|0003:04DF:001F.*|0003:04DF:0030.*|0003:04DF:0038.*\", TAG+=\"uaccess\"' | sudo tee /etc/udev/rules.d/70-vela-pads.rules && sudo udevadm control --reload && sudo udevadm trigger /dev/hidraw7
3" "$(refused "$padinfo")"
expect "where the rule is installed" "vela-padinfo: Vela II: no permission to open /dev/hidraw7; to get it, run: sudo udevadm trigger /dev/hidraw7
3" "$(RULE=installed refused "$padinfo" --samples)"
expect "in JSON" '[
  {"name": "Vela II", "class_id": "C1AF33B2529E4D2DB885DAF2780009EE", "attached": 1, "nodes": ["/dev/hidraw7"], "may_be_opened": false}
]
3' "$(refused "$padinfo" --json | sed /permission/d)"
expect "capturing" "vela-capture: Vela II: no permission to open /dev/hidraw7; to get it, run: sudo udevadm trigger /dev/hidraw7
3" "$(RULE=installed refused "$capture" a.svg)"
chmod 666 "$work/dev/hidraw7"
expect "a node that may be opened" "Vela II, 1 attached
  node      /dev/hidraw7" "$(refused "$padinfo" | head -n 2)"
finish
