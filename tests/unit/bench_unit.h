#pragma once
// Fixture of the tests that work on a unit: a fresh one in memory, and a clock that the test moves. A test that leaves
// a device or control socket open fails.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "simulator/board_calls.h"
#include "simulator/clock.h"
#include "simulator/unit.h"

class BenchUnit : public testing::Test {
protected:
  BenchUnit() : m_previous(gateway::useUnit(gateway::Unit::inMemory())) { gateway::clock::useManual(); }
  ~BenchUnit() override {
    EXPECT_EQ(gateway::openDescriptors(), 0);
    gateway::clock::useReal();
    gateway::useUnit(std::move(m_previous));
  }

  static gateway::Unit& unit() { return gateway::theUnit(); }

  /// Texts of the journal's rows of one kind, or "kind text" of all rows.
  static std::vector<std::string> journal(std::string_view kind = {}) {
    std::vector<std::string> texts;
    for (const auto& row : unit().journal(0, kind))
      texts.push_back(kind.empty() ? row.kind + " " + row.text : row.text);
    return texts;
  }

private:
  std::unique_ptr<gateway::Unit> m_previous;
};
