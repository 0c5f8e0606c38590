#include <cstdio>
#include <gtest/gtest.h>
#include <gtk/gtk.h>

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!GTEST_FLAG_GET(list_tests) && gtk_init_check() == FALSE) {
    std::fputs("These tests need a display; xvfb-run gives one.\n", stderr);
    return 1;
  }
  return RUN_ALL_TESTS();
}
