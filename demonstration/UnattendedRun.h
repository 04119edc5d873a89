// A full run of the window, provider after provider, without a user.
#ifndef DEMONSTRATION_UNATTENDEDRUN_H
#define DEMONSTRATION_UNATTENDEDRUN_H

#include <QString>
#include <vector>

#include "ApplicationWindow.h"
#include "DemonstrationPad.h"

namespace demonstration {

// For every provider: chooses it in the list, presses Open, signs, presses Clear, signs again,
// presses Reset. Saves a picture of the window after each step, and of the ink pad's LCD where
// there is one, as PNG files in `directory`, and prints their paths. `pads` are in the order of the
// provider list. Returns the exit status for the program: 0, or 1 after one line on standard error
// that names the step that failed. GUI thread only, inside the event loop.
int runUnattended(ApplicationWindow& window, const std::vector<DemonstrationPad>& pads,
                  const QString& directory);

}  // namespace demonstration

#endif
