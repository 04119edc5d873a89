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

// GUI thread only. The only failures reported are the three lines that OpenButton prints. Every
// broken invariant is a fatal error: an outlet that is empty when it is used, fewer than one
// provider, a list position beyond 16 bits, a description that cannot be read.
class MainWindowController : public QObject {
  Q_OBJECT

 public:
  // Creates the controller's SDK handle. The outlets are empty until the window is loaded.
  MainWindowController();

  // Destroys the window. Deliberate: the SDK handle is not deleted.
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
  // Performs a reset, then ends the application. All actions ignore their sender.
  virtual void QuitNow(QObject* sender);

  // Closes the connection and the provider, clears the ink in the window and offers Open again.
  // Returns when CloseConnection does (see VelaWrap.h); the window takes no input until then. The
  // focus moves to Open.
  virtual void ResetButton(QObject* sender);

  // Clears the ink on the pad and in the window. The connection stays open.
  virtual void ClearButton(QObject* sender);

  // Opens the chosen provider and its connection and gives the view the pad's size. The focus moves
  // to Clear. On failure it prints one line, keeps it in errmsg, and closes nothing.
  virtual void OpenButton(QObject* sender);

 public:
  // Disables Reset and Clear.
  virtual void initButtons();

  // Fills the provider list. A provider without a class id or description is left out, so the
  // following ones move up. Deliberate: list positions are used as provider indexes nevertheless.
  virtual void awakeFromNib();

  // Shows the window. The first call loads it: creates it from its form, binds the outlets and
  // calls awakeFromNib.
  void showWindow(QObject* sender);

 private:
  void loadWindow();
  void fail(const QString& message);
  void wipeView();

  std::unique_ptr<QMainWindow> m_window;
};

// The only controller. Null until the application has started, then never changed. It lives for the
// rest of the process: on the SDK's thread, the pen callback finds the drawing view through it.
extern std::atomic<MainWindowController*> m_mainWindowController;

#endif
