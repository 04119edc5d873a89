#include "PenRecordQueue.h"

#include <sys/time.h>
#include <unistd.h>

#include <memory>

#include "RecordList.h"

namespace {

// The wall clock in milliseconds, modulo 2^32.
std::uint32_t millisecondsNow() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<std::uint32_t>(now.tv_sec) * 1000U +
         static_cast<std::uint32_t>(now.tv_usec / 1000);
}

}  // namespace

template <class Tag>
PenRecordQueue<Tag>::~PenRecordQueue() {
  // The samples of records dropped here are not freed; the drain is meant to be just this.
  while (GetRecord(false) != nullptr) GetRecord(true);
  pthread_mutex_destroy(&m_headMutex);
  pthread_mutex_destroy(&m_mutex);
}

template <class Tag>
void PenRecordQueue<Tag>::SetRecord(tagDATA_RECORD* record) {
  RecordList::append(*this, record);
}

template <class Tag>
PEN_DATA* PenRecordQueue<Tag>::GetRecord(bool /*remove*/) {
  const std::unique_ptr<tagDATA_RECORD> record(RecordList::takeHead(*this));
  return record ? record->pData : nullptr;
}

template <class Tag>
void PenRecordQueue<Tag>::procdata_routine() {
  while (!m_bStop) {
    const std::unique_ptr<PEN_DATA> sample(GetRecord(true));
    if (sample) {
      deliver(*sample);
    } else {
      usleep(RecordList::kPollMicroseconds);
    }
  }
  RecordList::endThread();
}

template <class Tag>
void PenRecordQueue<Tag>::deliver(const PEN_DATA& sample) const {
  if (m_pfnCallback == nullptr) return;
  m_pfnCallback(sample.wX, sample.wY, sample.bPressure, sample.bFlags & kTouchFlag,
                millisecondsNow(), sample.bSequence);
}

template <class Tag>
void PenRecordQueue<Tag>::RequestStop() {
  m_bStop = true;
}

template class PenRecordQueue<struct UsbPadTag>;
template class PenRecordQueue<struct PadIiTag>;
template class PenRecordQueue<struct InkPadTag>;
