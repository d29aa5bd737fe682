#pragma once
// The modem configuration record of the gateway's configuration files. The service never loads it;
// it keeps one zeroed instance for callers that expect one. Field names, order and types are the
// gateway's.

struct FACTORY_CONFIG_TABLE {
  unsigned char macAddr[6];
  unsigned char modelNum[16];
  unsigned char serialNum[16];
  unsigned long wanInterface;
  unsigned long modemMode;
  unsigned char date[8];
  unsigned char revision[2];
  unsigned char e_164[32];
  char aucFileNameINI[21];
  char aucVersionINI[21];
  unsigned long crcChecksum;
};

struct BOOT_CONFIG_TABLE {
  char softwareVersion[10];
  char softwareModel[10];
  char description[10];
};

struct M77ModelNumber {
  char assigned[16];
  int overrideFlag;
};

struct modem_config {
  int modemCfgVer;
  FACTORY_CONFIG_TABLE factoryTable;
  BOOT_CONFIG_TABLE bootCfg;
  char admin_id[256];
  char admin_pw[256];
  int MaxPppIdSize;
  int MaxPppPwSize;
  int web_id_flag;
  char web_id[256];
  char web_pw[256];
  int MaxWebIdSize;
  int MaxWebPwSize;
  char wanDName[255];
  int if_index;
  int telnet_port;
  int maxWanConnects;
  int enabledProtocols;
  int enableRFC1577;
  int enableAtmOamF4;
  int enableAtmOamF5;
  int enableAtmLoopback;
  int enableDNS;
  int enableHTTP;
  int enablePPPoA;
  int enableDHCP;
  int enableNAT;
  int enableBcastFilter;
  int enableMcastFilter;
  int enableVCtoVCBridge;
  int enableSpanTree;
  int enablePortSwitch;
  int enablePPPoEVCAutoDetect;
  int enableConnectOnFirstSync;
  int enableRetryOnFirstSync;
  int enableAutoUserNameAppend;
  int enableEthernetWan;
  char autoDetectPortString[201];
  int sarQosPriorityMode;
  int enableVOIP;
  int initWelcomeWizard;
  int initVCWizard;
  int initDoneWizard;
  int initWPWizard;
  int enableUPNP;
  unsigned long disableDevice;
  M77ModelNumber ModelNum;
  unsigned short localWebPort;
  int enableUpLink;
  int ppp_failover_enable;
  int iBtPppAuthTimeoutSec;
  int iLcpDownCountMax;
  int remote_access_hidden;
  int iWebFeatureControl[4];
  unsigned long checksum;
};
using MODEM_CONFIG_TABLE = modem_config;
