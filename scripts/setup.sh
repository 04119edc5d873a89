# shellcheck shell=bash
# Functions shared by ./run, ./check and .ci/run: installing what is missing, and building. They source this file
# with $command_name set. Uses only features of the bash 3.2 of macOS.

# Packages for running the application, for the tests, for the deep checks, and for testing the Debian
# packages.
debian_run="g++ cmake ninja-build pkg-config libhidapi-dev libudev-dev libcairo2-dev qt6-base-dev qt6-wayland
  fonts-dejavu-core"
debian_check="$debian_run libgtest-dev libgmock-dev libbenchmark-dev libx11-dev libxdamage-dev
  libxtst-dev xvfb xauth xdotool imagemagick weston qemu-system-x86 busybox-static cpio kmod udev xz-utils zstd
  doxygen desktop-file-utils appstream man-db python3"
debian_deep="$debian_check clang clang-tidy clang-format libclang-rt-dev llvm
  valgrind debootstrap git"
debian_packages="debootstrap dpkg-dev git"
brew_run="cmake ninja pkgconf hidapi cairo qt"
brew_check="$brew_run googletest google-benchmark"

# Packages for the SDK and the device side on other processors, and with another standard library.
debian_core="cmake ninja-build libhidapi-dev googletest"
debian_arm64="$debian_core g++-aarch64-linux-gnu qemu-user"
debian_armhf="$debian_core g++-arm-linux-gnueabihf qemu-user"
debian_s390x="$debian_core g++-s390x-linux-gnu qemu-user"
debian_libcxx="$debian_core clang-16 libc++-16-dev libc++abi-16-dev"

say() { printf '%s: %s\n' "$command_name" "$*"; }
stop() {
  say "$*" >&2
  exit 1
}

# Prints the words of the first text that are not words of the second.
without() {
  local word
  for word in $1; do
    case " ${2//$'\n'/ } " in *" $word "*) ;; *) printf '%s ' "$word" ;; esac
  done
}

# install_missing run|check|deep|packages|arm64|armhf|s390x|libcxx: asks the package manager only when something
# is missing.
install_missing() {
  local debian=debian_$1 brew=brew_$1
  if command -v apt-get >/dev/null; then
    refuse_old_release /etc/os-release
    install_with_apt "${!debian}"
  elif [ "$1" != run ] && [ "$1" != check ]; then
    stop "this is set up for Debian and Ubuntu only"
  elif [ "$(uname)" = Darwin ]; then
    install_with_brew "${!brew}"
  else
    require_tools "$1"
  fi
}

# refuse_old_release OS_RELEASE: stops on a Debian or Ubuntu whose CMake is older than 3.25, which CMakeLists.txt
# requires. A release without a number is newer than all numbered ones.
refuse_old_release() {
  local ID="" VERSION_ID="" PRETTY_NAME="" oldest
  # shellcheck source=/dev/null
  [ ! -r "$1" ] || . "$1"
  case $ID in
    debian) oldest=12 ;;
    ubuntu) oldest=24.04 ;;
    *) return ;;
  esac
  printf '%s\n' "$oldest" "${VERSION_ID:-$oldest}" | sort -C -V ||
    stop "this needs Debian 12 or Ubuntu 24.04, or a later release; here is $PRETTY_NAME"
}

install_with_apt() {
  local missing as_root=
  missing=$(without "$1" "$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' 2>/dev/null |
    sed -n 's/^installed //p')")
  if [ -z "$missing" ]; then
    say "all needed packages are installed"
    return
  fi
  if [ "$(id -u)" != 0 ]; then
    command -v sudo >/dev/null || stop "as root, please install: $missing"
    as_root=sudo
  fi
  say "installing: $missing"
  $as_root apt-get update -qq || stop "apt-get update failed; still missing: $missing"
  $as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends $missing >/dev/null ||
    stop "apt-get install failed; still missing: $missing"
}

install_with_brew() {
  local missing
  xcode-select -p >/dev/null 2>&1 ||
    stop "the compiler is missing; please run: xcode-select --install"
  command -v brew >/dev/null || stop "please install Homebrew, or by other means: $1"
  missing=$(without "$1" "$(brew list --formula -1)")
  if [ -z "$missing" ]; then
    say "all needed packages are installed"
    return
  fi
  say "installing: $missing"
  brew install --quiet $missing || stop "brew install failed; still missing: $missing"
}

# For systems with another package manager: continues if nothing is missing, otherwise lists what is missing.
require_tools() {
  local tools="c++ cmake ninja pkg-config" modules="hidapi-hidraw libudev cairo Qt6Widgets" missing="" item
  [ "$1" = run ] || modules="$modules hidapi-libusb gtest gmock benchmark x11 xdamage xtst"
  for item in $tools; do
    command -v "$item" >/dev/null || missing="$missing $item"
  done
  for item in $modules; do
    pkg-config --exists "$item" 2>/dev/null || missing="$missing $item(pkg-config)"
  done
  [ -z "$missing" ] || stop "please install by your system's means, then try again:$missing"
  say "all needed tools and libraries are installed"
}

# build PRESET [TARGET...]: configures and builds in build/PRESET. Warnings are errors if the environment has
# VELA_WARNINGS_AS_ERRORS=ON.
build() {
  local preset=$1 log=build/$1-configure.log
  shift
  mkdir -p build
  say "configuring build/$preset"
  cmake --preset "$preset" -D VELA_WARNINGS_AS_ERRORS="${VELA_WARNINGS_AS_ERRORS:-OFF}" >"$log" || {
    cat "$log"
    stop "configuring failed"
  }
  say "building in build/$preset"
  cmake --build --preset "$preset" ${1:+--target "$@"} || stop "building failed"
}
