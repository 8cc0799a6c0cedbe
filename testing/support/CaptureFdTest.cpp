// Captures of standard output and standard error.

#include "support/CaptureFd.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

namespace lumtest {
namespace {

TEST(CaptureStdout, CatchesEveryRoadInOrder) {
  CaptureStdout capture;
  std::printf("c ");
  std::fflush(stdout);
  std::cout << "c++ " << std::flush;
  ASSERT_EQ(write(1, "fd ", 3), 3);
  EXPECT_EQ(capture.Text(), "c c++ fd ");
  ASSERT_EQ(std::system("printf child"), 0);
  std::printf(" unflushed");
  EXPECT_EQ(capture.Stop(), "c c++ fd child unflushed");
  EXPECT_EQ(capture.Stop(), "c c++ fd child unflushed");
  EXPECT_EQ(capture.Text(), "c c++ fd child unflushed");
}

TEST(CaptureStdout, NestsAndGivesTheOuterOneBack) {
  CaptureStdout outer;
  std::printf("before ");
  {
    CaptureStdout inner;
    std::printf("inner");
    EXPECT_EQ(inner.Text(), "inner");
  }
  std::printf("after");
  EXPECT_EQ(outer.Stop(), "before after");
}

TEST(CaptureFd, RefusesAClosedDescriptor) {
  EXPECT_THROW(CaptureFd(999), std::exception);
}

}  // namespace
}  // namespace lumtest
