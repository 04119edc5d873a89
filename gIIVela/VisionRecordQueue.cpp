#include "VisionRecordQueue.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <ctime>
#include <memory>

#include "RecordList.h"

namespace {

// Feature report 26, keep-alive; nothing but the id.
constexpr unsigned char kKeepAliveId = 26;
constexpr int kKeepAliveSize = 17;

// In ticks of clock(), which counts processor time and not the wall's: this is meant.
constexpr std::clock_t kKeepAliveTicks = 10000;

// Numbers the samples of all connections of the process: 1, 2, … 255, 0, 1, …
std::atomic<std::uint8_t> sampleID{0};

}  // namespace

VisionCDataHandler::~VisionCDataHandler() {
  while (const std::unique_ptr<tagVISDATA_RECORD> record{GetRecord(true)}) {
  }
  pthread_mutex_destroy(&m_headMutex);
  pthread_mutex_destroy(&m_mutex);
}

void VisionCDataHandler::SetRecord(tagVISDATA_RECORD* record) {
  RecordList::append(*this, record);
}

tagVISDATA_RECORD* VisionCDataHandler::GetRecord(bool /*remove*/) {
  return RecordList::takeHead(*this);
}

void VisionCDataHandler::procdata_routine() {
  std::clock_t last = std::clock();
  while (!m_bStop) {
    const std::unique_ptr<tagVISDATA_RECORD> record(GetRecord(true));
    if (record) {
      deliver(*record);
    } else {
      usleep(RecordList::kPollMicroseconds);
    }
    const std::clock_t now = std::clock();
    if (now - last >= kKeepAliveTicks) {
      keepAlive();
      last = now;
    }
  }
  RecordList::endThread();
}

void VisionCDataHandler::deliver(const tagVISDATA_RECORD& record) const {
  if (m_pfnCallback == nullptr) return;
  if (record.dwLength == tagVISDATA_RECORD::kPenLength) {
    const std::uint8_t sequence = ++sampleID;
    m_pfnCallback(record.pen.wX, record.pen.wY, record.pen.wPressure, record.pen.bTouch,
                  record.pen.dwTimeStamp, sequence);
  } else if (record.dwLength == tagVISDATA_RECORD::kShortLength && m_pfnAuxCallback != nullptr) {
    m_pfnAuxCallback(record.bytes[2], record.bytes[3], record.bytes[4]);
  }
}

void VisionCDataHandler::keepAlive() const {
  std::array<unsigned char, kKeepAliveSize> report{kKeepAliveId};
  m_pEngine->SetFeature(kKeepAliveSize, report.data());
}

void VisionCDataHandler::RequestStop() {
  m_bStop = true;
}
