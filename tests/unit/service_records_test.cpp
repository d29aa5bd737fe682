// The values, texts and layouts that the service's headers give to whoever compiles against them: a gateway's line
// driver, and the stations' side of the protocol.
#include <gtest/gtest.h>

#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Tags.h"
#include "userapps/FTM/FTM_Task.h"
#include "userapps/FTM/TFTPserver.h"
#include "userapps/FTM/VoipTask.h"
#include "userapps/FTM/WrLsTask.h"
#include "userapps/FTM/manu.h"
#include "userapps/FTM/xml_parser.h"

TEST(ServiceRecords, TextsOfTheDeviceHaveRoomForWhatItAnswers) {
  EXPECT_EQ(interfaceNameSize, 52);
  EXPECT_EQ(bootModeTextSize, 4U);
  EXPECT_EQ(circuitTextSize, 64U);
  EXPECT_EQ(portCountTextSize, 10U);
  EXPECT_EQ(speedTextSize, 12U);
  EXPECT_EQ(switchSpeedSize, 5U);
  EXPECT_EQ(kilobitTextSize, 16U);
  EXPECT_EQ(sizeof caE_164Strng, 80U);
  EXPECT_EQ(sizeof aucB, 20U);
  EXPECT_EQ(sizeof aucB1, 10U);
  EXPECT_EQ(radioMacTextSize, 20U);
  EXPECT_EQ(radioSsidTextSize, 33U);
  EXPECT_EQ(radioCountryTextSize, 10U);
  EXPECT_EQ(requestedSsidSize, 32U);
  EXPECT_EQ(requestedChannelSize, 4U);
}

TEST(ServiceRecords, LineDriversResultsAreTextsOfTwentyBytes) {
  EXPECT_EQ(sizeof(ST_VOIP_TEST_RSLT::cV1HookSt), 20U);
  EXPECT_EQ(sizeof(ST_VOIP_TEST_RSLT::cV1Digits), 20U);
  EXPECT_EQ(sizeof(ST_VOIP_TEST_RSLT::cV1CurDigits), 20U);
  EXPECT_EQ(sizeof(ST_VOIP_TEST_RSLT::cV2HookSt), 20U);
  EXPECT_EQ(sizeof(ST_VOIP_TEST_RSLT::cV2Digits), 20U);
  EXPECT_EQ(sizeof(ST_VOIP_TEST_RSLT::cV2CurDigits), 20U);
}

TEST(ServiceRecords, CommandsAndStatesHaveTheirNumbers) {
  EXPECT_EQ(eVOIP_IDLE, 0);
  EXPECT_EQ(eVOIP1_ON, 1);
  EXPECT_EQ(eVOIP1_OFF, 2);
  EXPECT_EQ(eVOIP2_ON, 3);
  EXPECT_EQ(eVOIP2_OFF, 4);
  EXPECT_EQ(eVOIP_MAX, 5);
  EXPECT_EQ(eWRLS_IDLE, 0);
  EXPECT_EQ(eWRLS_SET_CHNL, 1);
  EXPECT_EQ(eWRLS_SET_SSID, 2);
  EXPECT_EQ(eWRLS_SET_WEP_KEYS, 4);
  EXPECT_EQ(eWRLS_MAX, 5);
  EXPECT_EQ(OWNER_NONE, -1);
  EXPECT_EQ(OWNER_CPE, 1);
  EXPECT_EQ(OWNER_HTTP, 2);
  EXPECT_EQ(OWNER_EOC, 3);
  EXPECT_EQ(OWNER_TFTP, 4);
  EXPECT_EQ(OTHER, 0);
  EXPECT_EQ(UPG, 1);
  EXPECT_EQ(HEX, 2);
  EXPECT_EQ(DSL_STATE_DOWN, 0);
  EXPECT_EQ(DSL_STATE_UP, 1);
  EXPECT_EQ(DSL_RELOAD_REQ, 2);
  EXPECT_EQ(DSL_TRAIN, 3);
  EXPECT_EQ(eDOWN, 0);
  EXPECT_EQ(eUP, 1);
  EXPECT_EQ(eTRANSI_TO_UP, 2);
  EXPECT_EQ(eTRANSI_TO_DOWN, 3);
  EXPECT_EQ(eETHPACK_RX, 0);
  EXPECT_EQ(eETHPACK_TX, 1);
  EXPECT_EQ(allLedsPoint, 100U);
  EXPECT_EQ(leaveTestSetting, 99U);
}

TEST(ServiceRecords, ProtocolHasItsNumbers) {
  EXPECT_EQ(eRRQ, 1);
  EXPECT_EQ(eWRQ, 2);
  EXPECT_EQ(eDATA, 3);
  EXPECT_EQ(eACK, 4);
  EXPECT_EQ(eERROR, 5);
  EXPECT_EQ(tftpReceived, 0);
  EXPECT_EQ(tftpUnwanted, -1);
  EXPECT_EQ(tftpTimedOut, -2);
  EXPECT_EQ(tftpBlockSize, 512U);
  EXPECT_EQ(tftpHeaderSize, 4U);
  EXPECT_EQ(maxWrittenFile, 7648U);
}

TEST(ServiceRecords, LimitsAreWhatTheyAre) {
  EXPECT_EQ(maxClients, 100U);
  EXPECT_EQ(clientLifetime, 120U);
  EXPECT_EQ(inactivityLimit, 600);
  EXPECT_EQ(maxDatagram, 516U);
  EXPECT_EQ(queuedDatagramSize, 700U);
  EXPECT_EQ(switchPorts, 5U);
  EXPECT_EQ(maxPortCount, 999'999'999);
  EXPECT_EQ(xmlDocumentStack, 2U * 1024 * 1024);
}

TEST(ServiceRecords, MessagesAreWordForWordThoseOfTheProtocol) {
  EXPECT_STREQ(szWrFail, "Write data failed");
  EXPECT_STREQ(szTstUnsp, "Test not supported");
  EXPECT_STREQ(szInLed, "FTM LED Test in Progress");
  EXPECT_STREQ(szInRsSw, "FTM Reset Switch Test in Progress");
  EXPECT_STREQ(szInThrPut, "FTM Through Put Test in Progress");
  EXPECT_STREQ(szWrTCFail, "Write test config failed");
  EXPECT_STREQ(szFileInVid, "Xml File InValid");
  EXPECT_STREQ(szFileNSprt, "File Not Supported");
  EXPECT_STREQ(szCrtXobjFail, "Fail to Create Xml Data Obj");
  EXPECT_STREQ(szCrtXmlFail, "Fail to Create Xml File");
  EXPECT_STREQ(szNoCmdFnd, "No Command Found");
  EXPECT_STREQ(szInVoip, "FTM VOIP Test in Progress");
}
