#!/usr/bin/env bash
# run_test.sh DEMONSTRATION: runs ./run from start to end in a tree of its own. The script, the code it shares
# with the other commands and, where pictures are requested, the demonstration are real. The package manager,
# CMake and the command that prints the system's name are stand-ins on the PATH; CMake "builds" by copying the
# programs into place. The probe is a stand-in that finds a display if the variables name one, vela-padinfo one
# that finds what the test attaches. The script looks for the release's name in a folder of the test.
demonstration=$1
cd "$(dirname "$0")/../.." || exit
. tests/testing.sh
. tests/demonstration/pictures.sh

tree=$work/tree
mkdir -p "$tree" "$work/bin" "$work/programs"
cp -R scripts run "$tree"
sed "s|/etc/os-release|$work/os-release|" scripts/setup.sh >"$tree/scripts/setup.sh"
grep -q "$work/os-release" "$tree/scripts/setup.sh" || fail "./run does not look for the release where this test thinks"

stand_in() { # PATH: a script, given on standard input
  rm -f "$1"
  { echo '#!/bin/sh' && cat; } >"$1"
  chmod +x "$1"
}
stand_in "$work/bin/uname" <<<"echo \"\${SYSTEM:-Linux}\""
stand_in "$work/bin/id" <<<'echo 0'
touch "$work/installed"
stand_in "$work/bin/dpkg-query" <<<"sed 's/^/installed /' '$work/installed'"
stand_in "$work/bin/apt-get" <<END
echo "apt-get \$1" >>'$work/asked'
[ "\$1" = update ] || printf '%s\n' "\$@" >>'$work/installed'
END
stand_in "$work/bin/cmake" <<END
echo "cmake \$*" >>'$work/asked'
[ "\$1" = --build ] || exit 0
for target; do
  case \$target in
    testapp) folder=build/run/testapp ;;
    vela-padinfo) folder=build/run/tools ;;
    vela-demonstration | vela-display-probe) folder=build/run/demonstration ;;
    *) continue ;;
  esac
  mkdir -p \$folder
  ln -sf '$work/programs/'\$target \$folder
done
END

# run [NAME=VALUE...]: sets $status, $said to the lines of ./run itself, $printed to all other lines, and
# $asked to its calls of the package manager and of CMake.
run() {
  : >"$work/asked"
  env -u DISPLAY -u WAYLAND_DISPLAY -u VELA_WARNINGS_AS_ERRORS PATH="$work/bin:$PATH" "$@" "$tree/run" >"$work/output" 2>&1
  status=$?
  said=$(grep '^run: ' "$work/output")
  printed=$(grep -v '^run: ' "$work/output")
  asked=$(cat "$work/asked")
}
stand_in "$work/programs/vela-display-probe" <<<'[ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]'
attach() { # STATUS COMPLAINT: what vela-padinfo finds
  stand_in "$work/programs/vela-padinfo" <<<"echo Vela; echo 'vela-padinfo: $2' >&2; exit $1"
}
attach 1 "no pad is attached"
built='cmake --preset run -D VELA_WARNINGS_AS_ERRORS=OFF
cmake --build --preset run --target testapp vela-padinfo vela-demonstration vela-display-probe'
building='run: configuring build/run
run: building in build/run'

# --- a release that is too old ---

printf 'ID=ubuntu\nVERSION_ID="22.04"\nPRETTY_NAME="Ubuntu 22.04.5 LTS"\n' >"$work/os-release"
run
expect "the exit status on an old release" 1 $status
expect "the message on an old release" \
  "run: this needs Debian 12 or Ubuntu 24.04, or a later release; here is Ubuntu 22.04.5 LTS" "$said"
expect "the other output" "" "$printed"
expect "the commands on an old release" "" "$asked"
echo 'ID=debian' >"$work/os-release"

# --- no display: pictures ---

no_display='run: no display can be opened: the application runs unseen on virtual pads; pictures are saved'
pictures=$(pictures_in build/pictures)
expect_pictures() { # WHEN
  expect "$1, the exit status" 0 $status
  expect "$1, the paths of the pictures" "$pictures" "$printed"
  for picture in $pictures; do
    [ -s "$tree/$picture" ] || expect "$1" "a picture $picture" "none"
  done
  expect "$1, the number of files" 30 "$(find "$tree/build/pictures" -type f | wc -l)"
}

ln -s "$demonstration" "$work/programs/vela-demonstration"
run
expect_pictures "without a display"
expect "what is installed" 1 "$(grep -c "^run: installing: g++ cmake ninja-build .* fonts-dejavu-core $" <<<"$said")"
expect "the other messages" "$building
$no_display
run: done: 30 pictures in $tree/build/pictures" "$(tail -n +2 <<<"$said")"
expect "the commands" "apt-get update
apt-get install
$built" "$asked"

# The second time the package manager is not called, and CMake is not started afresh.
touch "$tree/build/pictures/old.png"
run
expect_pictures "a second time"
expect "the messages the second time" "run: all needed packages are installed
$building
$no_display
run: done: 30 pictures in $tree/build/pictures" "$said"
expect "the commands the second time" "$built" "$asked"

stand_in "$work/programs/vela-demonstration" <<<'exit 1'
run VELA_WARNINGS_AS_ERRORS=ON
expect "the first command with warnings as errors" "cmake --preset run -D VELA_WARNINGS_AS_ERRORS=ON" \
  "$(head -n 1 <<<"$asked")"
expect "the exit status when the pictures fail" 1 $status
expect "the last message when the pictures fail" "run: the run failed" "$(tail -n 1 <<<"$said")"

# --- a display: the application on the pad that is attached, else the demonstration ---

for program in testapp vela-demonstration; do
  stand_in "$work/programs/$program" <<<"echo \"this is $program, \$# arguments\""
done
expect_started() { # WHEN PROGRAM
  expect "$1, the exit status" 0 $status
  expect "$1, the program that is started" "this is $2, 0 arguments" "$printed"
  expect "$1, the last message" "run: done: the application has ended" "$(tail -n 1 <<<"$said")"
}

for display in DISPLAY WAYLAND_DISPLAY; do
  run $display=x
  expect_started "without a pad, in $display" vela-demonstration
done
expect "how another pad is tried" "run: to try another pad, press Reset, choose the pad in the list and press Open" \
  "$(grep another <<<"$said")"
run SYSTEM=Darwin
expect_started "without a pad on macOS" vela-demonstration

attach 0 ""
run SYSTEM=Darwin
expect_started "with a pad on macOS" testapp
run DISPLAY=x
expect_started "with a pad" testapp
expect "the messages with a pad" "run: all needed packages are installed
$building
run: a pad is attached: starting the application on it
run: done: the application has ended" "$said"

attach 3 "no permission to open /dev/hidraw3; to get it, run: this"
run DISPLAY=x
expect_started "with a pad without permission" testapp
expect "the message about a pad without permission" \
  "run: vela-padinfo: no permission to open /dev/hidraw3; to get it, run: this" \
  "$(grep 'no permission' <<<"$said")"

stand_in "$work/programs/testapp" <<<'exit 3'
run DISPLAY=x
expect "the exit status when the application fails" 1 $status
expect "the last message when the application fails" "run: the application ended with status 3" \
  "$(tail -n 1 <<<"$said")"

finish
