// vela-virtual-pad: plugs a virtual pad into this computer.
#include <QApplication>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "tools/CommandLine.h"
#include "tools/PlugTrouble.h"
#include "tools/Replay.h"
#include "virtualpads/Recording.h"
#include "virtualpads/kernel/UhidPad.h"
#include "virtualpads/usb/VhciPad.h"
#include "virtualpads/window/PadWindow.h"
#include "virtualpads/window/WatchedPad.h"

namespace virtualpads {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFailure = 1;
constexpr int kUsageError = 2;

// The kernel reports that a program has opened the pad a moment before it keeps reports for it.
constexpr std::chrono::milliseconds kPauseAfterOpening{100};

int fail(const std::string& complaint) {
  std::fprintf(stderr, "vela-virtual-pad: %s\n", complaint.c_str());
  return kFailure;
}

std::unique_ptr<KernelPad> makeKernelPad(std::shared_ptr<PadModel> model, bool usb) {
  if (usb) return std::make_unique<VhciPad>(std::move(model));
  return std::make_unique<UhidPad>(std::move(model));
}

// The pad's node, or nothing after an error message.
std::optional<std::string> plug(KernelPad& pad, bool usb) {
  if (usb && !vhciIsThere()) loadVhci();
  try {
    pad.plug();
  } catch (const std::system_error& error) {
    fail(usb ? vhciTrouble(error) : uhidTrouble(error));
    return std::nullopt;
  }
  try {
    std::string node = pad.waitForNode();
    if (!node.empty()) return node;
    fail("the kernel accepted the pad but created no /dev/hidraw node");
  } catch (const std::system_error& error) {
    fail(std::string("cannot find the pad's /dev/hidraw node: ") + error.what());
  }
  return std::nullopt;
}

int runReplay(const std::shared_ptr<PadModel>& model, bool usb, const std::string& file) {
  Recording recording;
  try {
    recording = readRecording(file);
    requireRecordingOf(model->description(), recording);
  } catch (const std::system_error& error) {
    return fail(error.what());
  } catch (const std::runtime_error& error) {
    return fail(file + ": " + error.what());
  }

  const auto pad = makeKernelPad(model, usb);
  const auto node = plug(*pad, usb);
  if (!node) return kFailure;
  std::printf("%s is plugged in at %s; waiting for a program to open it\n",
              model->description().name.c_str(), node->c_str());
  while (!pad->waitUntilOpen()) {
  }
  std::printf("sending %zu reports\n", recording.events.size());
  const auto begin = Clock::now() + kPauseAfterOpening;
  const std::size_t lost = replay(
      recording, [begin](auto since) { std::this_thread::sleep_until(begin + since); },
      [&pad](const Bytes& report) { return pad->open() && pad->send(report); });
  std::printf("sent; waiting for the program to close the pad\n");
  while (!pad->waitUntilClosed()) {
  }
  if (lost > 0) {
    return fail("lost " + std::to_string(lost) + " of " + std::to_string(recording.events.size()) +
                " reports: no program had the pad open");
  }
  return 0;
}

// The toolkit aborts when it finds no display. The messages that it prints before give the reason.
void exitWhereThereIsNoDisplay(QtMsgType type, const QMessageLogContext& context,
                               const QString& message) {
  if (type == QtFatalMsg) std::_Exit(fail("no display for the window; --replay works without one"));
  std::fprintf(stderr, "%s\n", qPrintable(qFormatLogMessage(type, context, message)));
}

int runWindow(int argc, char** argv, const std::shared_ptr<PadModel>& model, bool usb,
              const std::optional<std::string>& file) {
  // Installed before the pad is plugged and a recording is replaced.
  const QtMessageHandler handler = qInstallMessageHandler(exitWhereThereIsNoDisplay);
  QApplication application(argc, argv);
  qInstallMessageHandler(handler);

  auto watched = std::make_shared<WatchedPad>(model);
  const auto pad = makeKernelPad(watched, usb);
  const auto node = plug(*pad, usb);
  if (!node) return kFailure;
  std::printf("%s is plugged in at %s\n", watched->description().name.c_str(), node->c_str());

  std::ofstream out;
  std::optional<RecordingWriter> recorder;
  if (file) {
    out.open(*file);
    if (!out) return fail(*file + ": " + std::strerror(errno));
    recorder.emplace(out, model->description(), model->reportDescriptor());
  }

  PadWindow window(watched, [&](const PenState& pen) {
    const Bytes report = watched->inputReport(pen);
    pad->send(report);
    if (recorder && !recorder->write(std::chrono::milliseconds(pen.milliseconds), report)) {
      recorder.reset();
      QCoreApplication::exit(fail("cannot write " + *file));
    }
  });
  window.setWindowTitle(window.windowTitle() + " at " + QString::fromStdString(*node));
  window.show();
  return QApplication::exec();
}

int run(int argc, char** argv) {
  // Each line is written at once, also to a pipe.
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  CommandLine line;
  try {
    line = parseCommandLine({argv + 1, static_cast<std::size_t>(argc - 1)});
  } catch (const UsageError& error) {
    fail(error.what());
    std::fputs(usageText().c_str(), stderr);
    return kUsageError;
  }
  if (line.help) {
    std::fputs(helpText().c_str(), stdout);
    return 0;
  }
  if (line.version) {
    std::puts("vela-virtual-pad " VELA_VERSION);
    return 0;
  }
  const auto model = makePad(line.pad);
  return line.replay ? runReplay(model, line.usb, *line.replay)
                     : runWindow(argc, argv, model, line.usb, line.record);
}

}  // namespace

}  // namespace virtualpads

int main(int argc, char** argv) {
  return virtualpads::run(argc, argv);
}
