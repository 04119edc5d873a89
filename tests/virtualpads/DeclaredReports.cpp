#include "DeclaredReports.h"

#include <map>
#include <ostream>
#include <set>
#include <stdexcept>
#include <utility>

namespace {

void require(bool holds, const char* what) {
  if (!holds) throw std::runtime_error(what);
}

// Item prefixes without their two size bits.
enum Item : unsigned {
  Input = 0x80,
  Output = 0x90,
  Feature = 0xB0,
  Collection = 0xA0,
  EndCollection = 0xC0,
  UsagePage = 0x04,
  LogicalMinimum = 0x14,
  LogicalMaximum = 0x24,
  ReportSize = 0x74,
  ReportId = 0x84,
  ReportCount = 0x94,
  Usage = 0x08,
};

class Parser {
 public:
  std::vector<DeclaredReport> parse(std::span<const std::uint8_t> descriptor) {
    std::size_t at = 0;
    while (at < descriptor.size()) {
      const unsigned prefix = descriptor[at++];
      constexpr std::size_t kSizes[] = {0, 1, 2, 4};
      const std::size_t size = kSizes[prefix & 3U];
      require(at + size <= descriptor.size(), "an item runs over the end");
      std::uint32_t value = 0;
      for (std::size_t i = 0; i < size; ++i) value |= std::uint32_t{descriptor[at + i]} << (8 * i);
      at += size;
      take(prefix & 0xFCU, value, size);
    }
    require(m_depth == 0, "a collection is not closed");
    require(!m_bits.empty(), "no report");
    std::vector<DeclaredReport> reports;
    for (const auto& [report, bits] : m_bits) {
      require(bits % 8 == 0, "a report is not made of whole bytes");
      require((report.second == 0) == m_ids.empty(), "some reports are numbered and some are not");
      reports.push_back({report.first, report.second, bits / 8 + (report.second != 0 ? 1 : 0)});
    }
    return reports;
  }

 private:
  static std::int32_t asSigned(std::uint32_t value, std::size_t size) {
    switch (size) {
      case 1:
        return static_cast<std::int8_t>(value);
      case 2:
        return static_cast<std::int16_t>(value);
      default:
        return static_cast<std::int32_t>(value);
    }
  }

  void take(unsigned item, std::uint32_t value, std::size_t size) {
    switch (item) {
      case UsagePage:
        m_usagePage = value;
        break;
      case LogicalMinimum:
        m_minimum = asSigned(value, size);
        break;
      case LogicalMaximum:
        m_maximum = asSigned(value, size);
        break;
      case ReportSize:
        m_size = value;
        break;
      case ReportCount:
        m_count = value;
        break;
      case ReportId:
        require(value >= 1 && value <= 255, "a report id out of range");
        require(m_ids.insert(value).second, "a report id twice");
        m_id = static_cast<int>(value);
        break;
      case Usage:
        m_hasUsage = true;
        break;
      case Collection:
        require(m_depth > 0 || (value == 1 && m_hasUsage && m_usagePage == 0xFF00),
                "not an application collection of a vendor");
        ++m_depth;
        m_hasUsage = false;
        break;
      case EndCollection:
        require(m_depth-- > 0, "no collection to close");
        break;
      case Input:
        add('i', value);
        break;
      case Output:
        add('o', value);
        break;
      case Feature:
        add('f', value);
        break;
      default:
        throw std::runtime_error("an item that the pads have no use for");
    }
  }

  void add(char kind, std::uint32_t flags) {
    require(m_depth > 0, "a report outside of a collection");
    require(m_hasUsage, "a report without a usage is padding");
    require(flags == 2, "not data, variable, absolute");
    require(m_minimum == 0 && m_maximum == 255 && m_size == 8, "not bytes from 0 to 255");
    require(m_count > 0, "an empty report");
    m_bits[{kind, m_id}] += m_size * m_count;
    m_hasUsage = false;
  }

  int m_depth = 0;
  std::uint32_t m_usagePage = 0;
  std::int32_t m_minimum = -1;
  std::int32_t m_maximum = -1;
  std::size_t m_size = 0;
  std::size_t m_count = 0;
  int m_id = 0;
  bool m_hasUsage = false;
  std::set<std::uint32_t> m_ids;
  std::map<std::pair<char, int>, std::size_t> m_bits;
};

}  // namespace

std::ostream& operator<<(std::ostream& out, const DeclaredReport& report) {
  return out << report.kind << report.id << ':' << report.bytes;
}

std::vector<DeclaredReport> declaredReports(std::span<const std::uint8_t> descriptor) {
  return Parser().parse(descriptor);
}
