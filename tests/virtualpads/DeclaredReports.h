// Reads a HID report descriptor the way a host does and lists the reports that it declares.
#ifndef TESTS_VIRTUALPADS_DECLAREDREPORTS_H
#define TESTS_VIRTUALPADS_DECLAREDREPORTS_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <vector>

struct DeclaredReport {
  char kind;          // 'i' input, 'o' output, 'f' feature
  int id;             // 0: not numbered
  std::size_t bytes;  // on the wire, the id included
  auto operator<=>(const DeclaredReport&) const = default;
};

std::ostream& operator<<(std::ostream& out, const DeclaredReport& report);

// Sorted by kind and id. Throws std::runtime_error if a host would not accept the descriptor, or if
// a report contains anything but bytes from 0 to 255.
std::vector<DeclaredReport> declaredReports(std::span<const std::uint8_t> descriptor);

#endif
