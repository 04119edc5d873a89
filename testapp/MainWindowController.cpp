#include "MainWindowController.h"

#include <QCoreApplication>
#include <QEvent>
#include <QIcon>
#include <QScreen>
#include <QStringDecoder>
#include <cstdio>
#include <utility>

#include "Busy.h"
#include "FatalError.h"
#include "Queue.h"
#include "VelaWrap.h"
#include "ui_MainWindowController.h"

// The resources are in a static library, which does not load them by itself. The macro must not be
// used inside a namespace.
static void loadResources() {
  Q_INIT_RESOURCE(testapp);
}

namespace {

// The description as text. It must be present and be UTF-8.
QString decoded(const char* description, int index) {
  using Flag = QStringConverter::Flag;
  QStringDecoder decoder(QStringConverter::Utf8, Flag::Stateless | Flag::ConvertInitialBom);
  QString text = decoder(description);
  if (description == nullptr || decoder.hasError())
    FatalError(QStringLiteral("the description of provider %1 cannot be read").arg(index));
  return text;
}

short providerIndex(int listPosition) {
  if (!std::in_range<short>(listPosition))
    FatalError(QStringLiteral("the list position %1 is no provider index").arg(listPosition));
  return static_cast<short>(listPosition);
}

// Keeps the wheel from changing a widget that does not have the focus.
class WheelFilter : public QObject {
 public:
  using QObject::QObject;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override {
    return event->type() == QEvent::Wheel && !static_cast<QWidget*>(watched)->hasFocus();
  }
};

QIcon applicationIcon() {
  loadResources();
  QIcon icon;
  for (const int size : {16, 24, 32, 48, 64, 128, 256})
    icon.addFile(QStringLiteral(":/icons/testapp-%1.png").arg(size));
  return icon;
}

}  // namespace

std::atomic<MainWindowController*> m_mainWindowController = nullptr;

MainWindowController::MainWindowController() : velaobj(newgIIVela()) {}

MainWindowController::~MainWindowController() = default;

QString MainWindowController::windowNibName() const {
  return QStringLiteral("MainWindowController");
}

void MainWindowController::QuitNow(QObject* sender) {
  ResetButton(sender);
  QCoreApplication::quit();
}

void MainWindowController::ResetButton(QObject* /*sender*/) {
  {
    const Busy busy;
    CloseConnection(velaobj);
    CloseProvider(velaobj);
  }
  m_OpenButton->setEnabled(true);
  m_ClearButton->setEnabled(false);
  m_ResetButton->setEnabled(false);
  wipeView();
  m_OpenButton->setFocus();
}

void MainWindowController::ClearButton(QObject* /*sender*/) {
  ClearInking(velaobj);
  m_drawview->setNeedsDisplay(true);
  wipeView();
}

void MainWindowController::OpenButton(QObject* /*sender*/) {
  const int position = m_prolist->currentIndex();
  gpadindex = position;
  const short index = providerIndex(position);
  const QString description = decoded(GetProviderDescription(velaobj, index), index);
  if (!OpenProvider(velaobj, GetProviderClassID(velaobj, index))) {
    fail("Failed to open provider " + description);
    return;
  }
  if (GetNumDevices(velaobj) <= 0) {
    fail("No device " + description + " found");
    return;
  }
  RegisterEventHandler(velaobj, PenDataHandler);
  if (!OpenConnection(velaobj)) {
    fail("device " + description + " open failed");
    return;
  }
  m_ClearButton->setEnabled(true);
  m_ResetButton->setEnabled(true);
  m_OpenButton->setEnabled(false);
  m_width = GetPhysicalX(velaobj);
  m_height = GetPhysicalY(velaobj);
  m_drawview->resize(m_width, m_height);
  m_drawview->setNeedsDisplay(true);
  m_ClearButton->setFocus();
}

void MainWindowController::initButtons() {
  m_ResetButton->setEnabled(false);
  m_ClearButton->setEnabled(false);
}

void MainWindowController::awakeFromNib() {
  m_prolist->clear();
  const short providers = GetNumProviders(velaobj);
  if (providers < 1) FatalError(QStringLiteral("the number of providers is %1").arg(providers));
  for (short index = 0; index < providers; ++index) {
    const char* classid = GetProviderClassID(velaobj, index);
    const char* description = GetProviderDescription(velaobj, index);
    if (classid != nullptr && description != nullptr)
      m_prolist->addItem(decoded(description, index));
  }
}

void MainWindowController::showWindow(QObject* /*sender*/) {
  if (!m_window) loadWindow();
  m_window->show();
}

void MainWindowController::loadWindow() {
  m_window = std::make_unique<QMainWindow>();
  Ui::MainWindowController form;
  form.setupUi(m_window.get());
  m_window->setWindowIcon(applicationIcon());

  m_prolist = form.m_prolist;
  m_drawview = form.m_drawview;
  m_ResetButton = form.m_ResetButton;
  m_OpenButton = form.m_OpenButton;
  m_ClearButton = form.m_ClearButton;

  connect(form.m_OpenButton, &QPushButton::clicked, this, [this] { OpenButton(m_OpenButton); });
  connect(form.m_ClearButton, &QPushButton::clicked, this, [this] { ClearButton(m_ClearButton); });
  connect(form.m_ResetButton, &QPushButton::clicked, this, [this, button = form.m_ResetButton] {
    button->setDown(true);  // until the pad is closed
    ResetButton(button);
    button->setDown(false);
  });
  connect(form.quit, &QAction::triggered, this, [this, quit = form.quit] { QuitNow(quit); });

  connect(form.m_drawview, &DrawView::frameChanged, form.scrollArea,
          [form] { form.scrollArea->showView(*form.canvas, form.m_drawview->geometry()); });
  m_prolist->installEventFilter(new WheelFilter(m_prolist));

  awakeFromNib();
  form.scrollArea->keepWithin(m_window->screen()->availableSize());
}

void MainWindowController::fail(const QString& message) {
  errmsg = message;
  std::puts(errmsg.toUtf8().constData());
}

// Clears the view of the published controller, which is this one once the application has started.
void MainWindowController::wipeView() {
  if (MainWindowController* published = m_mainWindowController) {
    published->m_drawview->ClearContext();
    published->m_drawview->setNeedsDisplay(true);
  }
  firstPoint = 0;
}
