# shellcheck shell=bash
# Sourced by the tests of commands that make the demonstration's pictures.

# pictures_in DIRECTORY: the paths of the unattended run's pictures, in the order of their creation.
pictures_in() {
  local pad step
  for pad in 1-vela-usb 2-vela-ii 3-vela-ink 4-vela-vision; do
    for step in 1-chosen 2-open 3-signed 4-cleared 5-signed-again 6-reset; do
      echo "$1/$pad-$step.png"
      [ $pad != 3-vela-ink ] || echo "$1/$pad-$step-lcd.png"
    done
  done
}
