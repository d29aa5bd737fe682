#pragma once
// Notes the calls of the store that open and end something. For the one file of a test program that wraps
// STORE_CALLS.

#include <string>
#include <vector>

#include "platform/cfg_api.h"

inline std::vector<std::string> storeCalls;

extern "C" {
void* __real_cfg_startSession(int role, const char* name);
int __real_cfg_endSession(void* session);
int __real_cfg_startTransaction(void* session);
int __real_cfg_commitTransaction(void* session);
int __real_cfg_abortTransaction(void* session);
int __real_cfg_resetCfg(void* session, int scope);

void* __wrap_cfg_startSession(int role, const char* name) {
  storeCalls.push_back("session " + std::to_string(role) + (name == nullptr ? "" : std::string(" ") + name));
  return __real_cfg_startSession(role, name);
}
int __wrap_cfg_endSession(void* session) {
  storeCalls.emplace_back("end");
  return __real_cfg_endSession(session);
}
int __wrap_cfg_startTransaction(void* session) {
  storeCalls.emplace_back("start");
  return __real_cfg_startTransaction(session);
}
int __wrap_cfg_commitTransaction(void* session) {
  storeCalls.emplace_back("commit");
  return __real_cfg_commitTransaction(session);
}
int __wrap_cfg_abortTransaction(void* session) {
  storeCalls.emplace_back("abort");
  return __real_cfg_abortTransaction(session);
}
int __wrap_cfg_resetCfg(void* session, int scope) {
  storeCalls.push_back("reset " + std::to_string(scope));
  return __real_cfg_resetCfg(session, scope);
}
}
