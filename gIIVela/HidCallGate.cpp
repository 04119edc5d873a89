#include "HidCallGate.h"

bool HidCallGate::failed() {
  const std::lock_guard lock(m_mutex);
  return m_textStored;
}

bool HidCallGate::begin(Side side) {
  const Side other = side == Reading ? Control : Reading;
  std::unique_lock lock(m_mutex);
  m_readerWaits = m_readerWaits || side == Reading;
  m_ended.wait(lock, [&] {
    const bool otherGoesFirst = m_busy[other] || (side == Control && m_readerWaits);
    return !m_busy[side] && !(m_textStored && otherGoesFirst);
  });
  if (side == Reading) m_readerWaits = false;
  m_busy[side] = true;
  return m_textStored;
}

void HidCallGate::end(Side side, bool failed, bool freed) {
  {
    const std::lock_guard lock(m_mutex);
    m_busy[side] = false;
    if (failed) {
      m_textStored = true;
    } else if (freed) {
      // The call began with a text stored, so it ran alone: nobody can have stored another.
      m_textStored = false;
    }
  }
  m_ended.notify_all();
}
