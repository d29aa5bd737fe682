// Placeholders of the line driver. A gateway with a line driver links its own in their place.
#include "userapps/FTM/VoipTask.h"

int ftm_slicmode(const char*) {
  return -1;
}

int ftm_playtone(const char*) {
  return -1;
}

int ftm_endtone(const char*) {
  return -1;
}

int ftm_reporttone(const char*) {
  return -1;
}

int Ftm_CMGetVoipTstRslt(ST_VOIP_TEST_RSLT*) {
  return -1;
}
