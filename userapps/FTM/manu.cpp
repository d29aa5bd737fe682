// The empty steps of the download channel.
#include "userapps/FTM/manu.h"

void DISC_dataFirst(ST_DISC_CHAN_ATTRIBS*) {}
void DISC_dataAsm(ST_DISC_CHAN_ATTRIBS*) {}
void DISC_dataFinis(ST_DISC_CHAN_ATTRIBS*) {}
void DISC_hexFirst(ST_DISC_CHAN_ATTRIBS*) {}
void DISC_hexAsm(ST_DISC_CHAN_ATTRIBS*) {}
void DISC_hexFinis(ST_DISC_CHAN_ATTRIBS*) {}
void DISC_burnHexImage() {}
void WDOGPetTheDog() {}
void ReBoot(int) {}
