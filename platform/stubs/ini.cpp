// Link stand-in for the INI library: it refuses every text.
#include "platform/cfg_api.h"

int ParseIniFile(stMgmtUtilClientInfo*, int*, int*, int) {
  return CFG_ERR_COMM;
}
