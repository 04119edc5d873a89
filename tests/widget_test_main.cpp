#include <gmock/gmock.h>

#include <QApplication>
#include <cstdio>

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  QApplication application(argc, argv);
  // A test that closes its window must not end the program.
  QApplication::setQuitOnLastWindowClosed(false);
  testing::InitGoogleMock(&argc, argv);
  // Some tests use threads, so death tests start from a fresh process.
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  return RUN_ALL_TESTS();
}
