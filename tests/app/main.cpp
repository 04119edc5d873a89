#include <gmock/gmock.h>

#include <QApplication>
#include <cstdio>

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  QApplication application(argc, argv);
  // A test that ends its window must not end the program.
  QApplication::setQuitOnLastWindowClosed(false);
  testing::InitGoogleMock(&argc, argv);
  // Some tests have threads; a death test then starts from a fresh process.
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  return RUN_ALL_TESTS();
}
