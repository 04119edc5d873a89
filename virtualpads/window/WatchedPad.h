// Wraps a pad model and reports what happens to the pad: the reports that it sends, and the feature
// reports that reach it. A face takes it like any other model.
#ifndef VIRTUALPADS_WINDOW_WATCHEDPAD_H
#define VIRTUALPADS_WINDOW_WATCHEDPAD_H

#include <functional>
#include <memory>
#include <mutex>
#include <variant>

#include "virtualpads/PadModel.h"

namespace virtualpads {

// All operations may be called on any thread: unlike other models, this one serialises the calls
// itself.
class WatchedPad : public PadModel {
 public:
  // The pad made an input report.
  struct InputReport {
    PenState pen;
    Bytes bytes;
  };
  struct FeatureReport {
    enum class Direction { Get, Set };
    Direction direction;
    bool accepted;  // false: the pad refused it
    Bytes bytes;    // the report, its id first; of a get that was refused the id alone
  };
  using Event = std::variant<InputReport, FeatureReport>;
  using Observer = std::function<void(const Event&)>;

  explicit WatchedPad(std::shared_ptr<PadModel> pad);

  // From now on, the observer is called for each event, on the thread that caused it and before the
  // causing call returns. It must not call back into the pad. An empty observer ends that: the
  // previous one is not called any more once this has returned.
  void watch(Observer observer);

  // Calls `see` with the wrapped model while nothing can change it. `see` must not call back into
  // this pad.
  void look(const std::function<void(const PadModel&)>& see) const;

  Bytes inputReport(const PenState& pen) override;
  std::optional<Bytes> getFeature(std::uint8_t reportId) override;
  bool setFeature(std::span<const std::uint8_t> report) override;

 private:
  void notify(const Event& event) const;

  mutable std::mutex m_mutex;  // guards all that follows
  const std::shared_ptr<PadModel> m_pad;
  Observer m_observer;
};

}  // namespace virtualpads

#endif
