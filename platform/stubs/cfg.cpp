// Link stand-in for the configuration store's client library: there is no store.
#include "platform/cfg_api.h"

void* cfg_startSession(int, const char*) {
  return nullptr;
}

int cfg_endSession(void*) {
  return CFG_ERR_COMM;
}

int cl_cfg_getTable(void*, const char*, ST_CFG_TABLE**, const char*, const char*, int) {
  return CFG_ERR_COMM;
}

int cfg_freeTable(ST_CFG_TABLE*) {
  return CFG_ERR_COMM;
}

int cfg_startTransaction(void*) {
  return CFG_ERR_COMM;
}

int cfg_findCol(void*, const char*, const char*) {
  return -1;
}

int cfg_setField(void*, const char*, int, int, const char*) {
  return CFG_ERR_COMM;
}

int cfg_commitTransaction(void*) {
  return CFG_ERR_COMM;
}

int cfg_abortTransaction(void*) {
  return CFG_ERR_COMM;
}

int cfg_resetCfg(void*, int) {
  return CFG_ERR_COMM;
}

int cfg_setListen(void*, CFG_LISTENER) {
  return CFG_ERR_COMM;
}

int cfg_listenSubject(void*, const char*) {
  return CFG_ERR_COMM;
}

int cfg_sendMsg(void*, const char*, const char*) {
  return CFG_ERR_COMM;
}

int cl_cfg_service(void*, const char*, const char*, int) {
  return CFG_ERR_COMM;
}
