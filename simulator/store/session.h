#pragma once
// A session of the configuration store, as its handle points to it.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "platform/cfg_api.h"
#include "simulator/store/tables.h"

namespace gateway {

struct StagedCell {
  const StoreTable* table;
  int row;
  int column;
  std::string value;
};

struct Session {
  unsigned role; ///< an ENUM_CFG_ROLE
  std::string name;
  bool isInTransaction = false;
  std::vector<StagedCell> staged{};
  CFG_LISTENER listener = nullptr;
  std::vector<std::string> subjects{};
  std::int64_t lastMessage = 0; ///< id of the newest message that the session has seen
};

/// Runs a call of the store; its callers know error codes only.
template <class Call>
int guarded(Call call) {
  try {
    return call();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "simulator: the store failed: %s\n", error.what());
    return CFG_ERR_INTERNAL;
  }
}

} // namespace gateway
