#include "userapps/FTM/FTM_Store.h"

#include <cstdio>

#include "userapps/FTM/FTM_App.h"

bool isUsable(const StoreSession& session) {
  if (session.isOpen())
    return true;
  std::fputs("error: failed to start session\n", stderr);
  FTM_FlgErrorTFTP(0, szCrtXmlFail, 0);
  return false;
}

bool isUsable(const TableSnapshot& snapshot, const char* table) {
  if (snapshot.isRead())
    return true;
  std::fprintf(stderr, "error: failed to read table: %s\n", table);
  FTM_FlgErrorTFTP(0, szCrtXmlFail, 0);
  return false;
}
