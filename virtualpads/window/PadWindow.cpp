#include "virtualpads/window/PadWindow.h"

#include <QFontDatabase>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QMenuBar>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>
#include <QVBoxLayout>
#include <utility>

#include "virtualpads/window/HexText.h"

namespace virtualpads {

namespace {

constexpr int kFrameMilliseconds = 16;
constexpr int kSpacing = 9;

// A pad in its case, with ink on it.
QIcon padIcon() {
  constexpr int kDrawn = 64;  // the size for which the numbers below are
  QIcon icon;
  for (const int size : {16, 24, 32, 48, 64, 128, 256}) {
    QPixmap picture(size, size);
    picture.fill(Qt::transparent);
    QPainter painter(&picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(static_cast<double>(size) / kDrawn, static_cast<double>(size) / kDrawn);
    painter.setPen(QPen(QColor(0x8A, 0x93, 0xA0), 2));
    painter.setBrush(QColor(0x3A, 0x40, 0x49));
    painter.drawRoundedRect(QRectF(2, 8, 60, 48), 7, 7);
    painter.fillRect(QRectF(9, 15, 46, 29), Qt::white);
    QPainterPath ink(QPointF(14, 36));
    ink.cubicTo(20, 10, 28, 16, 24, 36);
    ink.cubicTo(32, 16, 38, 24, 35, 36);
    ink.cubicTo(40, 30, 44, 30, 50, 33);
    painter.strokePath(ink, QPen(Qt::blue, 4, Qt::SolidLine, Qt::RoundCap));
    painter.end();
    icon.addPixmap(picture);
  }
  return icon;
}

}  // namespace

PadWindow::PadWindow(std::shared_ptr<WatchedPad> pad, SendPen sendPen) : m_pad(std::move(pad)) {
  m_nextFrame.setSingleShot(true);
  m_nextFrame.setInterval(kFrameMilliseconds);
  connect(&m_nextFrame, &QTimer::timeout, this, &PadWindow::catchUp);
  // Before the first look, so that no event is missed in between.
  m_pad->watch([this](const WatchedPad::Event& event) { receive(event); });
  m_pad->look([this](const PadModel& model) {
    m_portrait = makePortrait(model).release();
    m_portrait->showState(model);
  });

  const QString name = QString::fromStdString(m_pad->description().name);
  setWindowTitle(name + " (virtual pad)");
  setWindowIcon(padIcon());
  m_surface = new PadSurface(name, m_portrait->surface(), std::move(sendPen));
  m_pen = new QLabel("lifted");
  m_pen->setObjectName("pen");
  m_inputReport = new QLabel("none");
  m_inputReport->setObjectName("inputReport");
  m_inputReport->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  m_inputReport->setTextInteractionFlags(Qt::TextSelectableByMouse);
  m_features = new FeatureTable(m_pad->description().reports);
  if (m_features->rowCount() == 0) m_features->hide();

  auto* penForm = new QFormLayout;
  penForm->addRow("Pen", m_pen);
  penForm->addRow("Last input report", m_inputReport);
  auto* upper = new QHBoxLayout;
  upper->setSpacing(kSpacing);
  upper->addWidget(m_surface, 1);
  upper->addWidget(m_portrait);
  auto* menus = new QMenuBar;
  auto* menu = menus->addMenu("&Pad");
  menu->addAction("&Close", this, &QWidget::close)->setShortcut(QKeySequence::Close);
  auto* all = new QVBoxLayout(this);
  all->setMenuBar(menus);
  all->setSpacing(kSpacing);
  all->addLayout(upper, 1);
  all->addLayout(penForm);
  all->addWidget(m_features);
  // Qt would limit the first size to two thirds of the screen.
  resize(sizeHint().boundedTo(screen()->availableSize()));
}

// Qt hides the window after this, which lifts a pen that is down.
PadWindow::~PadWindow() {
  m_pad->watch({});
}

// Called on any thread. The first event after the inbox was emptied asks for the next frame.
void PadWindow::receive(const WatchedPad::Event& event) {
  std::lock_guard lock(m_inboxMutex);
  if (m_inbox.empty()) QMetaObject::invokeMethod(&m_nextFrame, "start", Qt::QueuedConnection);
  m_inbox.push_back(event);
}

void PadWindow::catchUp() {
  std::vector<WatchedPad::Event> events;
  {
    std::lock_guard lock(m_inboxMutex);
    events.swap(m_inbox);
  }
  for (const auto& event : events) std::visit([this](const auto& report) { take(report); }, event);
  m_pad->look([this](const PadModel& model) { m_portrait->showState(model); });
  m_surface->setView(m_portrait->surface());
}

void PadWindow::take(const WatchedPad::InputReport& report) {
  const PenState& pen = report.pen;
  m_portrait->penMoved(pen);
  m_surface->setPen(pen);
  m_pen->setText(pen.touch ? QString("touching at %1, %2 with pressure %3")
                                 .arg(pen.x, 0, 'f', 3)
                                 .arg(pen.y, 0, 'f', 3)
                                 .arg(pen.pressure, 0, 'f', 2)
                           : QString("lifted"));
  m_inputReport->setText(hexText(report.bytes));
}

void PadWindow::take(const WatchedPad::FeatureReport& report) {
  m_portrait->featureReport(report);
  m_features->take(report);
}

}  // namespace virtualpads
