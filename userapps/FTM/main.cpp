#include "userapps/FTM/FTM_Task.h"

int main() {
  FTM_Main();
}
