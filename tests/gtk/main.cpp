#include <cstdio>
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <malloc.h>

int main(int argc, char** argv) {
  // As `wayloom view` does.
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, 128 << 20);
  testing::InitGoogleTest(&argc, argv);
  if (!GTEST_FLAG_GET(list_tests) && gtk_init_check() == FALSE) {
    std::fputs("These tests need a display; xvfb-run gives one.\n", stderr);
    return 1;
  }
  return RUN_ALL_TESTS();
}
