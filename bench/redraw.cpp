// How long one redraw of the drawing view takes, by the number of segments that it shows, next to
// the same picture drawn by QPainter::drawPath and by Cairo as they come.
//
// The ink is what a pen leaves: short segments between whole points, all over the view of a USB
// pad.
#include <benchmark/benchmark.h>
#include <cairo.h>

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <cmath>
#include <vector>

#include "DrawView.h"

namespace {

constexpr QSize kViewSize(265, 161);

// A pen that winds over the view: a spiral out and in again, ever anew and turned a little, 200
// samples each. Points that are the same as the one before are left out, so that each step is a
// segment.
std::vector<QPoint> penPoints(int segments) {
  std::vector<QPoint> points;
  for (int sample = 0; static_cast<int>(points.size()) <= segments; ++sample) {
    const int round = sample / 200;
    const double turn = sample * 0.063 + round * 0.37;
    const double reach = 0.05 + 0.9 * std::abs(sample % 200 - 100) / 100.0;
    const QPoint point(132 + static_cast<int>(130 * reach * std::cos(turn)),
                       80 + static_cast<int>(78 * reach * std::sin(turn)));
    if (points.empty() || points.back() != point) points.push_back(point);
  }
  return points;
}

QImage canvas(double scale) {
  QImage image((QSizeF(kViewSize) * scale).toSize(), QImage::Format_RGB32);
  image.setDevicePixelRatio(scale);
  return image;
}

void countSegments(benchmark::State& state, int segments) {
  state.counters["segments/s"] =
      benchmark::Counter(static_cast<double>(segments) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}

// One sample arrives, and the view is redrawn: the path is another one each time.
void viewRedraw(benchmark::State& state) {
  const auto segments = static_cast<int>(state.range(0));
  DrawView view;
  view.setGeometry(QRect(QPoint(0, 0), kViewSize));
  const auto points = penPoints(segments);
  view.SetMoveTo(points[0].x(), points[0].y());
  for (std::size_t i = 1; i < points.size(); ++i) {
    view.SetLineTo(points[i].x(), points[i].y());
    view.SetMoveTo(points[i].x(), points[i].y());
  }
  QImage image = canvas(static_cast<double>(state.range(1)) / 100);
  for ([[maybe_unused]] auto _ : state) {
    view.SetMoveTo(points.back().x(), points.back().y());
    QPainter painter(&image);
    view.drawRect(painter, view.rect());
  }
  countSegments(state, segments);
}

void drawPlainly(benchmark::State& state, const QPainterPath& path) {
  QImage image = canvas(static_cast<double>(state.range(1)) / 100);
  for ([[maybe_unused]] auto _ : state) {
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(QRect(QPoint(0, 0), kViewSize), Qt::white);
    painter.setPen(QPen(Qt::blue, 2));
    painter.drawPath(path);
  }
  countSegments(state, static_cast<int>(state.range(0)));
}

// The same ink as one joined path, antialiased and otherwise as the toolkit does it by itself.
void plainDrawPath(benchmark::State& state) {
  const auto points = penPoints(static_cast<int>(state.range(0)));
  QPainterPath path(points[0]);
  for (const QPoint& point : points) path.lineTo(point);
  drawPlainly(state, path);
}

// The same as subpaths of one segment each, which is what the view has.
void plainDrawPathOfSegments(benchmark::State& state) {
  const auto points = penPoints(static_cast<int>(state.range(0)));
  QPainterPath path;
  for (std::size_t i = 1; i < points.size(); ++i) {
    path.moveTo(points[i - 1]);
    path.lineTo(points[i]);
  }
  drawPlainly(state, path);
}

// The same subpaths stroked by Cairo as one path.
void cairoStroke(benchmark::State& state) {
  const auto points = penPoints(static_cast<int>(state.range(0)));
  const double scale = static_cast<double>(state.range(1)) / 100;
  const QSize size = canvas(scale).size();
  cairo_surface_t* surface =
      cairo_image_surface_create(CAIRO_FORMAT_RGB24, size.width(), size.height());
  for ([[maybe_unused]] auto _ : state) {
    cairo_t* cairo = cairo_create(surface);
    cairo_scale(cairo, scale, scale);
    cairo_set_source_rgb(cairo, 1, 1, 1);
    cairo_paint(cairo);
    cairo_set_source_rgb(cairo, 0, 0, 1);
    cairo_set_line_width(cairo, 2);
    for (std::size_t i = 1; i < points.size(); ++i) {
      cairo_move_to(cairo, points[i - 1].x(), points[i - 1].y());
      cairo_line_to(cairo, points[i].x(), points[i].y());
    }
    cairo_stroke(cairo);
    cairo_destroy(cairo);
  }
  cairo_surface_destroy(surface);
  countSegments(state, static_cast<int>(state.range(0)));
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"segments", "scale%"})->Unit(benchmark::kMillisecond);
  for (const int scale : {100, 200}) {
    for (const int segments : {1'000, 10'000, 100'000, 1'000'000}) {
      benchmark->Args({segments, scale});
    }
  }
}

BENCHMARK(viewRedraw)->Apply(sizes);
BENCHMARK(plainDrawPathOfSegments)->Apply(sizes);
BENCHMARK(cairoStroke)->Apply(sizes);
// Joined, a million segments take minutes.
BENCHMARK(plainDrawPath)
    ->ArgNames({"segments", "scale%"})
    ->Unit(benchmark::kMillisecond)
    ->ArgsProduct({{1'000, 10'000, 100'000}, {100, 200}});

}  // namespace

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
