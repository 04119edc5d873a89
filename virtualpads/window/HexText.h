// Bytes as hexadecimal text.
#ifndef VIRTUALPADS_WINDOW_HEXTEXT_H
#define VIRTUALPADS_WINDOW_HEXTEXT_H

#include <QByteArray>
#include <QString>
#include <algorithm>
#include <cstdint>
#include <span>

namespace virtualpads {

// "20 4e 02": two digits for each byte. More than 65 bytes are cut, and their number is appended.
inline QString hexText(std::span<const std::uint8_t> bytes) {
  constexpr std::size_t kMost = 65;
  const auto shown = bytes.first(std::min(bytes.size(), kMost));
  const QByteArray raw(reinterpret_cast<const char*>(shown.data()),
                       static_cast<qsizetype>(shown.size()));
  QString text = QString::fromLatin1(raw.toHex(' '));
  if (shown.size() < bytes.size()) text += QString(" … (%1 bytes)").arg(bytes.size());
  return text;
}

}  // namespace virtualpads

#endif
