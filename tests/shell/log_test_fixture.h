// A test root whose log connection is forgotten before and after each test,
// so that one test's connection never serves the next.
#pragma once

#include <unistd.h>

#include <gtest/gtest.h>

#include "shell/log_client.h"
#include "test_root.h"

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override { Forget(); }
  void TearDown() override { Forget(); }
  static void Forget() {
    if (LogMailslotHandle > 0) close(LogMailslotHandle);
    LogMailslotHandle = 0;
  }

  testing_support::TestRoot root_;
};
