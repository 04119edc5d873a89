// How long one redraw of the drawing view takes, by the number of segments shown, compared with the
// same picture drawn by QPainter::drawPath and QPainter::drawLines.
//
// The ink is on the view of a USB pad: handwriting and hatching as a pen leaves them, which are
// short segments between whole points, and long lines between random points.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <cmath>
#include <random>
#include <vector>

#include "DrawView.h"

namespace {

constexpr QSize kViewSize(265, 161);

using Segments = std::vector<QLine>;

// The path of a pen through the points. A point that equals the one before it is left out.
class Pen {
 public:
  explicit Pen(int wanted) : m_wanted(wanted) {}

  bool writes() const { return std::ssize(segments) < m_wanted; }

  void moveTo(double x, double y) { m_at = {static_cast<int>(x), static_cast<int>(y)}; }

  void lineTo(double x, double y) {
    const QPoint from = m_at;
    moveTo(x, y);
    if (m_at != from && writes()) segments.emplace_back(from, m_at);
  }

  Segments segments;

 private:
  std::ptrdiff_t m_wanted;
  QPoint m_at;
};

// Joined letters in four lines of writing, sheet after sheet on top of each other, each sheet
// slightly shifted and with letters of another size.
Segments handwriting(int segments) {
  Pen pen(segments);
  for (int row = 0; pen.writes(); ++row) {
    const double left = 12 + row * 7 % 11;
    const double middle = 30 + 34 * (row % 4) + row * 5 % 9 - 4;
    const double size = 8 + row * 3 % 7;
    pen.moveTo(left, middle);
    for (int sample = 0; sample < 420; ++sample) {
      const double turn = sample * 0.3;
      const double height = size * (0.6 + 0.4 * std::sin(turn / 5));
      pen.lineTo(left + sample * 0.52 + 0.6 * size * std::sin(turn),
                 middle - height * std::sin(turn * 0.97));
    }
  }
  return pen.segments;
}

Segments randomLines(int segments) {
  std::mt19937 random;  // the same sequence each time
  const auto below = [&](int end) {
    return static_cast<int>(random() % static_cast<unsigned>(end));
  };
  Segments lines;
  while (std::ssize(lines) < segments) {
    const QPoint from(below(kViewSize.width()), below(kViewSize.height()));
    lines.emplace_back(from, QPoint(below(kViewSize.width()), below(kViewSize.height())));
  }
  return lines;
}

// Slanted strokes back and forth across the view, over and over.
Segments hatching(int segments) {
  constexpr int kSteps = 40;
  Pen pen(segments);
  for (int stroke = 0; pen.writes(); ++stroke) {
    const double foot = stroke * 3 % 200;
    for (int sample = 0; sample <= kSteps; ++sample) {
      const double way = static_cast<double>(stroke % 2 == 0 ? sample : kSteps - sample) / kSteps;
      const double x = 10 + foot + 45 * way;
      const double y = 150 - 140 * way;
      stroke == 0 && sample == 0 ? pen.moveTo(x, y) : pen.lineTo(x, y);
    }
  }
  return pen.segments;
}

using Pattern = Segments (*)(int segments);

QImage canvas(const benchmark::State& state) {
  const double scale = static_cast<double>(state.range(1)) / 100;
  QImage image((QSizeF(kViewSize) * scale).toSize(), QImage::Format_RGB32);
  image.setDevicePixelRatio(scale);
  return image;
}

// One sample arrives, and the view is redrawn: the path is different each time.
void view(benchmark::State& state, Pattern pattern) {
  DrawView view;
  view.setGeometry(QRect(QPoint(0, 0), kViewSize));
  const Segments segments = pattern(static_cast<int>(state.range(0)));
  for (const QLine& segment : segments) {
    view.SetMoveTo(segment.x1(), segment.y1());
    view.SetLineTo(segment.x2(), segment.y2());
  }
  QImage image = canvas(state);
  for ([[maybe_unused]] auto _ : state) {
    view.SetMoveTo(segments.back().x2(), segments.back().y2());
    QPainter painter(&image);
    view.drawRect(painter, view.rect());
  }
}

void paint(benchmark::State& state, auto stroke) {
  QImage image = canvas(state);
  for ([[maybe_unused]] auto _ : state) {
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(QRect(QPoint(0, 0), kViewSize), Qt::white);
    painter.setPen(QPen(Qt::blue, 2, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
    stroke(painter);
  }
}

// Each segment is a subpath of its own, as in the view.
void drawPath(benchmark::State& state, Pattern pattern) {
  QPainterPath path;
  for (const QLine& segment : pattern(static_cast<int>(state.range(0)))) {
    path.moveTo(segment.p1());
    path.lineTo(segment.p2());
  }
  paint(state, [&](QPainter& painter) {
    path.moveTo(path.currentPosition());
    painter.drawPath(path);
  });
}

void drawLines(benchmark::State& state, Pattern pattern) {
  QList<QLineF> lines;
  for (const QLine& segment : pattern(static_cast<int>(state.range(0)))) lines.append(segment);
  paint(state, [&](QPainter& painter) { painter.drawLines(lines); });
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"segments", "scale%"})
      ->Unit(benchmark::kMillisecond)
      ->ArgsProduct({{1'000, 10'000, 100'000}, {100, 200}});
}

BENCHMARK_CAPTURE(view, handwriting, handwriting)->Apply(sizes);
BENCHMARK_CAPTURE(drawPath, handwriting, handwriting)->Apply(sizes);
BENCHMARK_CAPTURE(drawLines, handwriting, handwriting)->Apply(sizes);
BENCHMARK_CAPTURE(view, randomLines, randomLines)->Apply(sizes);
BENCHMARK_CAPTURE(drawPath, randomLines, randomLines)->Apply(sizes);
BENCHMARK_CAPTURE(drawLines, randomLines, randomLines)->Apply(sizes);
BENCHMARK_CAPTURE(view, hatching, hatching)->Apply(sizes);
BENCHMARK_CAPTURE(drawPath, hatching, hatching)->Apply(sizes);
BENCHMARK_CAPTURE(drawLines, hatching, hatching)->Apply(sizes);

}  // namespace

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
