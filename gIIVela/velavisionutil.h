/// \file
/// Small tools that belong with the vision pad: an identifier text, a packed colour, base64.
#ifndef GIIVELA_VELAVISIONUTIL_H
#define GIIVELA_VELAVISIONUTIL_H

#include <string>
#include <vector>

#include "Export.h"

/// Keeps no state: any object serves, on any thread (but see GUID).
class GIIVELA_API velavisionutil {
 public:
  virtual ~velavisionutil() = default;

  /// A text of 4 to 32 lower-case hexadecimal digits, which the caller releases with delete[]. It
  /// looks random and is not a GUID in any standard's layout. Deliberate: each call seeds the C
  /// library's generator with the clock's seconds, so two calls within a second give the same text,
  /// and calls on several threads at once disturb each other and other users of rand.
  char* GUID();

  /// A colour of 5 bits red, 6 bits green and 5 bits blue, red highest, from components of 0 to
  /// 255. Nothing is clamped: larger components carry into their neighbour.
  unsigned short RGBtoShort(int r, int g, int b);

  /// Base64 with the standard alphabet and "=" padding, without line breaks. `bytes` may be null
  /// when length is 0.
  std::string base64_encode(const unsigned char* bytes, unsigned int length);

  /// The bytes of a base64 text, up to its end or to the first character that is neither of the
  /// alphabet nor alphanumeric in the current locale. An unfinished group gives the bytes that it
  /// holds whole. Never fails.
  std::vector<unsigned char> base64_decode(const std::string& text);
};

#endif
