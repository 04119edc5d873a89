// The controller of the application's only window and the owner of its only SDK handle.
#ifndef TESTAPP_MAINWINDOWCONTROLLER_H
#define TESTAPP_MAINWINDOWCONTROLLER_H

#include <QComboBox>
#include <QMainWindow>
#include <QObject>
#include <QPushButton>
#include <QString>
#include <atomic>
#include <memory>

#include "DrawView.h"
#include "Outlet.h"

// All operations are for the GUI thread. The only failures that are reported are the three lines
// that OpenButton prints; every broken invariant is a fatal error: an outlet that is empty when it
// is used, fewer than one provider, a list position beyond 16 bits, a description that cannot be
// read.
class MainWindowController : public QObject {
  Q_OBJECT

 public:
  // Makes the controller's SDK handle; the outlets are empty until the window is loaded.
  MainWindowController();

  // Destroys the window. The SDK handle is left alone, on purpose.
  ~MainWindowController() override;

  Outlet<QComboBox> m_prolist{"m_prolist"};
  Outlet<DrawView> m_drawview{"m_drawview"};
  Outlet<QPushButton> m_ResetButton{"m_ResetButton"};
  Outlet<QPushButton> m_OpenButton{"m_OpenButton"};
  Outlet<QPushButton> m_ClearButton{"m_ClearButton"};
  void* velaobj;         // the handle of the flat functions
  QString errmsg;        // the line that OpenButton printed last
  double m_width = 1.0;  // of the pad that was opened last, in inches
  double m_height = 1.0;

  // The name of the form that describes the window: "MainWindowController".
  virtual QString windowNibName() const;

 public slots:
  // Resets, then ends the application. The actions ignore their sender.
  virtual void QuitNow(QObject* sender);

  // Closes the connection and the provider, wipes the ink in the window and offers Open again.
  // Returns when CloseConnection does (see VelaWrap.h); the window takes no input until then. The
  // focus goes to Open.
  virtual void ResetButton(QObject* sender);

  // Wipes the ink on the pad and in the window. The connection stays open.
  virtual void ClearButton(QObject* sender);

  // Opens the chosen provider and its connection and gives the view the pad's size. The focus goes
  // to Clear. When that fails it prints one line, keeps it in errmsg, and leaves what is open open.
  virtual void OpenButton(QObject* sender);

 public:
  // Disables Reset and Clear.
  virtual void initButtons();

  // Fills the provider list. A provider without class id or description is left out, so those
  // behind it move up; list positions are used as provider indexes all the same.
  virtual void awakeFromNib();

  // Shows the window. The first call loads it: makes it from its form, binds the outlets and calls
  // awakeFromNib.
  void showWindow(QObject* sender);

 private:
  void loadWindow();
  void fail(const QString& message);
  void wipeView();

  std::unique_ptr<QMainWindow> m_window;
};

// The one controller; null until the application has started, then never changed. It lives for the
// rest of the process: the pen callback finds the drawing view through it on the SDK's thread.
extern std::atomic<MainWindowController*> m_mainWindowController;

#endif
