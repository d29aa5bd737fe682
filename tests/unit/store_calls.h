#pragma once
// Notes the calls of the store that open and end something. For the one file of a test program that wraps
// STORE_CALLS.

#include <string>
#include <vector>

#include "platform/cfg_api.h"

inline std::vector<std::string> storeCalls;

void* real_startSession(int role, const char* name) asm("__real_cfg_startSession");
int real_endSession(void* session) asm("__real_cfg_endSession");
int real_startTransaction(void* session) asm("__real_cfg_startTransaction");
int real_commitTransaction(void* session) asm("__real_cfg_commitTransaction");
int real_abortTransaction(void* session) asm("__real_cfg_abortTransaction");
int real_resetCfg(void* session, int scope) asm("__real_cfg_resetCfg");

void* wrap_startSession(int role, const char* name) asm("__wrap_cfg_startSession");
int wrap_endSession(void* session) asm("__wrap_cfg_endSession");
int wrap_startTransaction(void* session) asm("__wrap_cfg_startTransaction");
int wrap_commitTransaction(void* session) asm("__wrap_cfg_commitTransaction");
int wrap_abortTransaction(void* session) asm("__wrap_cfg_abortTransaction");
int wrap_resetCfg(void* session, int scope) asm("__wrap_cfg_resetCfg");

void* wrap_startSession(int role, const char* name) {
  storeCalls.push_back("session " + std::to_string(role) + (name == nullptr ? "" : std::string(" ") + name));
  return real_startSession(role, name);
}

int wrap_endSession(void* session) {
  storeCalls.emplace_back("end");
  return real_endSession(session);
}

int wrap_startTransaction(void* session) {
  storeCalls.emplace_back("start");
  return real_startTransaction(session);
}

int wrap_commitTransaction(void* session) {
  storeCalls.emplace_back("commit");
  return real_commitTransaction(session);
}

int wrap_abortTransaction(void* session) {
  storeCalls.emplace_back("abort");
  return real_abortTransaction(session);
}

int wrap_resetCfg(void* session, int scope) {
  storeCalls.push_back("reset " + std::to_string(scope));
  return real_resetCfg(session, scope);
}
