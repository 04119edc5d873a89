#include "Signature.h"

#include <cairo.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <memory>

namespace {

constexpr double kPointsPerInch = 72;
constexpr double kLineWidth = 1.5;  // points
constexpr double kPixelsPerInch = 300;

// The strokes: the samples with the pen on the surface, from each pen-down to the next pen-up.
std::vector<std::vector<Sample>> strokesOf(const Signature& signature) {
  std::vector<std::vector<Sample>> strokes;
  bool down = false;
  for (const Sample& sample : signature.samples) {
    if (sample.touch && !down) strokes.emplace_back();
    if (sample.touch) strokes.back().push_back(sample);
    down = sample.touch;
  }
  return strokes;
}

bool writeSvg(const Signature& signature, std::FILE* file) {
  const auto x = [&signature](const Sample& sample) { return signature.x.points(sample.x); };
  const auto y = [&signature](const Sample& sample) { return signature.y.points(sample.y); };
  const double width = signature.x.points();
  const double height = signature.y.points();
  std::fprintf(file,
               "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.2fpt\" height=\"%.2fpt\" "
               "viewBox=\"0 0 %.2f %.2f\">\n<path fill=\"none\" stroke=\"#00f\" "
               "stroke-width=\"%g\" stroke-linecap=\"round\" stroke-linejoin=\"round\" d=\"",
               width, height, width, height, kLineWidth);
  for (const auto& stroke : strokesOf(signature)) {
    // The path starts with a line of zero length, which shows as a dot.
    std::fprintf(file, "M%.2f %.2f", x(stroke.front()), y(stroke.front()));
    for (const Sample& sample : stroke) std::fprintf(file, "L%.2f %.2f\n", x(sample), y(sample));
  }
  std::fputs("\"/>\n</svg>\n", file);
  return std::ferror(file) == 0;
}

cairo_status_t writeBytes(void* file, const unsigned char* bytes, unsigned int count) {
  return std::fwrite(bytes, 1, count, static_cast<std::FILE*>(file)) == count
             ? CAIRO_STATUS_SUCCESS
             : CAIRO_STATUS_WRITE_ERROR;
}

// The same drawing on a white background.
bool writePng(const Signature& signature, std::FILE* file) {
  const auto pixels = [](const Axis& axis) {
    // The library rejects a picture that is too large.
    return static_cast<int>(std::min(std::ceil(axis.inches * kPixelsPerInch), 1e9));
  };
  const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> surface(
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, pixels(signature.x), pixels(signature.y)),
      cairo_surface_destroy);
  const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> context(cairo_create(surface.get()),
                                                                   cairo_destroy);
  cairo_set_source_rgb(context.get(), 1, 1, 1);
  cairo_paint(context.get());
  cairo_scale(context.get(), kPixelsPerInch / kPointsPerInch, kPixelsPerInch / kPointsPerInch);
  cairo_set_source_rgb(context.get(), 0, 0, 1);
  cairo_set_line_width(context.get(), kLineWidth);
  cairo_set_line_cap(context.get(), CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(context.get(), CAIRO_LINE_JOIN_ROUND);
  for (const auto& stroke : strokesOf(signature)) {
    cairo_move_to(context.get(), signature.x.points(stroke.front().x),
                  signature.y.points(stroke.front().y));
    for (const Sample& sample : stroke)
      cairo_line_to(context.get(), signature.x.points(sample.x), signature.y.points(sample.y));
  }
  cairo_stroke(context.get());

  const cairo_status_t drawn = cairo_status(context.get());
  if (drawn != CAIRO_STATUS_SUCCESS) {
    errno = drawn == CAIRO_STATUS_NO_MEMORY ? ENOMEM : EOVERFLOW;
    return false;
  }
  const cairo_status_t written = cairo_surface_write_to_png_stream(surface.get(), writeBytes, file);
  if (written == CAIRO_STATUS_NO_MEMORY) errno = ENOMEM;
  return written == CAIRO_STATUS_SUCCESS;
}

// Digital ink as defined by the W3C recommendation of 20 September 2011. A value outside the range
// that its channel declares would be invalid, so the nearest value inside is written; writeCsv
// writes values unchanged.
bool writeInkml(const Signature& signature, std::FILE* file) {
  const Axis& x = signature.x;
  const Axis& y = signature.y;
  std::fprintf(file,
               "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
               "<ink xmlns=\"http://www.w3.org/2003/InkML\">\n"
               "  <definitions>\n"
               "    <timestamp xml:id=\"start\" time=\"%llu\"/>\n"
               "    <inkSource xml:id=\"pad\" model=\"%s\">\n"
               "      <traceFormat xml:id=\"samples\">\n",
               static_cast<unsigned long long>(signature.start), signature.pad.c_str());
  const auto channel = [file](const char* name, int low, int high) {
    std::fprintf(file,
                 "        <channel name=\"%s\" type=\"integer\" min=\"%d\" max=\"%d\" "
                 "units=\"dev\"/>\n",
                 name, low, high);
  };
  channel("X", x.low, x.high);
  channel("Y", y.low, y.high);
  channel("F", signature.pressureLow, signature.pressureHigh);
  std::fprintf(file,
               "        <channel name=\"T\" type=\"integer\" min=\"0\" units=\"ms\" "
               "respectTo=\"#start\"/>\n"
               "      </traceFormat>\n"
               "      <activeArea width=\"%g\" height=\"%g\" units=\"in\"/>\n"
               "      <channelProperties>\n",
               x.inches, y.inches);
  const auto resolution = [file](const char* name, const Axis& axis) {
    std::fprintf(file,
                 "        <channelProperty channel=\"%s\" name=\"resolution\" value=\"%.2f\" "
                 "units=\"1/in\"/>\n",
                 name, (static_cast<double>(axis.high) - axis.low) / axis.inches);
  };
  resolution("X", x);
  resolution("Y", y);
  std::fputs(
      "      </channelProperties>\n"
      "    </inkSource>\n"
      "    <context xml:id=\"onThePad\" inkSourceRef=\"#pad\" traceFormatRef=\"#samples\"/>\n"
      "  </definitions>\n",
      file);
  for (const auto& stroke : strokesOf(signature)) {
    const char* before = "  <trace contextRef=\"#onThePad\">";
    for (const Sample& sample : stroke) {
      std::fprintf(file, "%s%d %d %d %u", before, std::clamp(sample.x, x.low, x.high),
                   std::clamp(sample.y, y.low, y.high),
                   std::clamp(sample.pressure, signature.pressureLow, signature.pressureHigh),
                   sample.timestamp - signature.samples.front().timestamp);
      before = ",\n";
    }
    std::fputs("</trace>\n", file);
  }
  std::fputs("</ink>\n", file);
  return std::ferror(file) == 0;
}

bool writeCsv(const Signature& signature, std::FILE* file) {
  std::fputs("x,y,pressure,touch,timestamp,sequence\n", file);
  for (const Sample& sample : signature.samples) {
    std::fprintf(file, "%d,%d,%d,%u,%u,%u\n", sample.x, sample.y, sample.pressure, sample.touch,
                 sample.timestamp, sample.sequenceNumber);
  }
  return std::ferror(file) == 0;
}

struct Format {
  const char* suffix;
  Writer write;
};
constexpr Format kFormats[] = {
    {".svg", writeSvg}, {".png", writePng}, {".inkml", writeInkml}, {".csv", writeCsv}};

}  // namespace

bool Axis::usable() const {
  return high > low && std::isfinite(inches) && inches > 0;
}

double Axis::points(int value) const {
  return (static_cast<double>(value) - low) * points() / (static_cast<double>(high) - low);
}

double Axis::points() const {
  return inches * kPointsPerInch;
}

bool Signature::empty() const {
  return std::none_of(samples.begin(), samples.end(),
                      [](const Sample& sample) { return sample.touch != 0; });
}

Writer writerFor(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) return nullptr;
  for (const auto& [suffix, write] : kFormats)
    if (strcasecmp(path.c_str() + dot, suffix) == 0) return write;
  return nullptr;
}
