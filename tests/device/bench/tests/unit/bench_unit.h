#pragma once
// The fixture of tests/unit/bench_unit.h for a build without the simulator: a journal in memory, and a clock that the
// test moves. Its folder stands before the project's among the places of headers.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/clock.h"
#include "tests/device/bench/bench.h"

class BenchUnit : public testing::Test {
protected:
  BenchUnit() {
    gateway::theUnit().clear();
    gateway::clock::useManual();
  }
  ~BenchUnit() override {
    EXPECT_EQ(gateway::theUnit().openDescriptors(), 0);
    gateway::clock::useReal();
  }

  static gateway::Bench& unit() { return gateway::theUnit(); }

  /// Texts of the journal's rows of one kind, or "kind text" of all rows.
  static std::vector<std::string> journal(std::string_view kind = {}) { return unit().journal(kind); }
};
