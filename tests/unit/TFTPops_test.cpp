#include <algorithm>
#include <climits>
#include <cstring>

#include "tests/unit/tftp_station.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

struct ReceivedData {
  int result;
  std::string bytes;
  int length = -1;
  std::uint16_t block = 0xdead;
};

ReceivedData getData() {
  char buffer[tftpBlockSize + 8] = {};
  ReceivedData received{};
  received.result = TFTPget_data(buffer, &received.length, &received.block);
  received.bytes = buffer;
  return received;
}

class TFTPops : public TftpStation {};

// Senders

TEST_F(TFTPops, AnAckIsFourBytesInNetworkOrder) {
  EXPECT_EQ(TFTPsend_ack(0x1234), 0);
  EXPECT_THAT(sent(), ElementsAre("\0\4\x12\x34"s));
}

TEST_F(TFTPops, DataIsItsBlockNumberAndItsBytes) {
  EXPECT_EQ(TFTPsend_data("ab\0cd", 5, 0x0102), 0);
  EXPECT_THAT(sent(), ElementsAre("\0\3\1\2ab\0cd"s));
}

TEST_F(TFTPops, DataWithoutBytesIsFourBytesLong) {
  EXPECT_EQ(TFTPsend_data("", 0, 7), 0);
  EXPECT_THAT(sent(), ElementsAre("\0\3\0\7"s));
}

TEST_F(TFTPops, DataIsNeverLongerThanABlock) {
  const std::string tooLong = fileOf(2000);
  TFTPsend_data(tooLong.data(), 2000, 1);
  EXPECT_THAT(sent(), ElementsAre(data(1, tooLong.substr(0, 512))));
}

TEST_F(TFTPops, AnErrorIsItsCodeAndItsTextWithANul) {
  TFTPsend_error(3, "file allocation size exceeded");
  EXPECT_THAT(sent(), ElementsAre("\0\5\0\3file allocation size exceeded\0"s));
}

TEST_F(TFTPops, AnErrorTextIsCutAt511CharactersAndItsNul) {
  const std::string tooLong = fileOf(600);
  TFTPsend_error(0, tooLong.c_str());
  EXPECT_THAT(sent(), ElementsAre(error(0, tooLong.substr(0, 511))));
}

TEST_F(TFTPops, SendersReportNoFailure) {
  pClient = nullptr;
  EXPECT_EQ(TFTPsend_ack(1), 0);
  EXPECT_EQ(TFTPsend_data("x", 1, 1), 0);
  TFTPsend_error(0, "x");
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(TFTPops, ToleratedBlocksAreCountedForEver) {
  ServerBlockSeqError = INT_MAX;
  TFTPcountSeqError();
  EXPECT_EQ(ServerBlockSeqError, INT_MIN);
  ServerBlockSeqError = 0;
}

// Waiting for data

TEST_F(TFTPops, DataIsStoredWithItsLengthAndItsBlockNumber) {
  queued(data(0x0203, "hello"));
  const ReceivedData received = getData();
  EXPECT_EQ(received.result, 0);
  EXPECT_EQ(received.bytes, "hello");
  EXPECT_EQ(received.length, 5);
  EXPECT_EQ(received.block, 0x0203);
}

TEST_F(TFTPops, ADataPacketOfFourBytesHasLengthZero) {
  queued(data(9, ""));
  const ReceivedData received = getData();
  EXPECT_EQ(received.result, 0);
  EXPECT_EQ(received.length, 0);
  EXPECT_EQ(received.block, 9);
}

TEST_F(TFTPops, OversizeDataIsReportedWithItsLengthAndCopiedToTheEndOfTheBlock) {
  const std::string bytes = fileOf(queuedDatagramSize - tftpHeaderSize);
  queued(data(1, bytes));
  const ReceivedData received = getData();
  EXPECT_EQ(received.result, 0);
  EXPECT_EQ(received.length, 696);
  EXPECT_EQ(received.bytes, bytes.substr(0, 512));
}

TEST_F(TFTPops, AnErrorPacketEndsTheWaitForDataAtOnce) {
  arrives(40, error(0, "stop"));
  EXPECT_EQ(getData().result, -1);
  EXPECT_EQ(gateway::clock::nowMs(), 40);
  EXPECT_THAT(logged(), ElementsAre(debugLine("FTM_getData: expecting data packet, got error packet")));
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(TFTPops, AnyOtherPacketEndsTheWaitForDataWithoutAMessage) {
  for (const std::string& packet : {ack(1), rrq("f"), wrq("f"), wire(6), wire(0), wire(0x0300)}) {
    queued(packet);
    EXPECT_EQ(getData().result, -1);
  }
  EXPECT_THAT(logged(), IsEmpty());
  EXPECT_EQ(gateway::clock::nowMs(), 0);
}

TEST_F(TFTPops, ADatagramTooShortForDataIsAProtocolError) {
  for (const std::string& packet : {"\0"s, "\3"s, "\0\3"s, "\0\3\0"s}) {
    queued(packet);
    const ReceivedData received = getData();
    EXPECT_EQ(received.result, -1);
    EXPECT_EQ(received.length, -1) << "the caller's length was changed";
    EXPECT_EQ(received.block, 0xdead) << "the caller's block number was changed";
  }
}

TEST_F(TFTPops, DataIsTakenWhenItArrives) {
  arrives(7, data(1, "x"));
  EXPECT_EQ(getData().result, 0);
  EXPECT_EQ(gateway::clock::nowMs(), 7);
}

TEST_F(TFTPops, DataIsAwaitedFor301TimesTenMilliseconds) {
  EXPECT_EQ(getData().result, -2);
  EXPECT_EQ(gateway::clock::nowMs(), 3010);
  EXPECT_THAT(logged(), ElementsAre(debugLine("FTM_getData: timeout waiting for data packet")));
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(TFTPops, DataJustBeforeTheTimeOutIsTaken) {
  arrives(3009, data(1, "x"));
  EXPECT_EQ(getData().result, 0);
}

TEST_F(TFTPops, DataAtTheTimeOutIsLeftForTheNextWait) {
  arrives(3010, data(1, "x"));
  EXPECT_EQ(getData().result, -2);
  EXPECT_EQ(getData().result, 0);
}

// Waiting for an acknowledgement

TEST_F(TFTPops, AnAcknowledgementYieldsItsBlockNumber) {
  arrives(3, ack(0x1122));
  std::uint16_t block = 0;
  EXPECT_EQ(TFTPget_ack(&block), 0);
  EXPECT_EQ(block, 0x1122);
  EXPECT_EQ(gateway::clock::nowMs(), 3);
}

TEST_F(TFTPops, AnAcknowledgementIsAwaitedFor13Times250Milliseconds) {
  std::uint16_t block = 0;
  CaptureStdout();
  EXPECT_EQ(TFTPget_ack(&block), -2);
  EXPECT_EQ(GetCapturedStdout(), "FTM_getAck: ack packet timeout! timeoutCntr= 13\n");
  EXPECT_EQ(gateway::clock::nowMs(), 3250);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(TFTPops, AnErrorPacketIsReportedAndTheWaitForAnAcknowledgementGoesOnForItsWholeTime) {
  std::uint16_t block = 0;
  for (int ms = 100; ms < 3250; ms += 100)
    arrives(ms, error(0, "stop"));
  CaptureStdout();
  EXPECT_EQ(TFTPget_ack(&block), -2);
  const std::string output = GetCapturedStdout();
  EXPECT_THAT(output, testing::StartsWith("FTM_getAck: expecting ack packet, got error packet\n"));
  EXPECT_THAT(output, testing::EndsWith("FTM_getAck: ack packet timeout! timeoutCntr= 13\n"));
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 32 + 1);
  EXPECT_EQ(gateway::clock::nowMs(), 3250);
}

TEST_F(TFTPops, AnyOtherPacketIsReportedWithItsOpcodeWhileAnAcknowledgementIsAwaited) {
  std::uint16_t block = 0;
  queued(data(1, "x"));
  queued(rrq("file"));
  queued(wire(0x0102));
  queued("\4"s);
  queued("\0\4\0"s);
  queued(ack(5));
  CaptureStdout();
  EXPECT_EQ(TFTPget_ack(&block), 0);
  EXPECT_EQ(GetCapturedStdout(), "FTM_getAck: received something other than expected ack packet. OpCode = 3\n"
                                 "FTM_getAck: received something other than expected ack packet. OpCode = 1\n"
                                 "FTM_getAck: received something other than expected ack packet. OpCode = 258\n"
                                 "FTM_getAck: received something other than expected ack packet. OpCode = 0\n"
                                 "FTM_getAck: received something other than expected ack packet. OpCode = 4\n");
  EXPECT_EQ(block, 5);
}

TEST_F(TFTPops, AnAcknowledgementAfterUnwantedPacketsIsStillTaken) {
  std::uint16_t block = 0;
  arrives(100, error(0, "no"));
  arrives(3249, ack(2));
  CaptureStdout();
  EXPECT_EQ(TFTPget_ack(&block), 0);
  GetCapturedStdout();
  EXPECT_EQ(block, 2);
}

TEST_F(TFTPops, AnAcknowledgementAtTheTimeOutIsLeftForTheNextWait) {
  std::uint16_t block = 0;
  arrives(3250, ack(2));
  CaptureStdout();
  EXPECT_EQ(TFTPget_ack(&block), -2);
  GetCapturedStdout();
  EXPECT_EQ(TFTPget_ack(&block), 0);
  EXPECT_EQ(block, 2);
}

TEST_F(TFTPops, ADatagramWithoutBytesIsPassedOver) {
  queued("");
  queued(data(1, "x"));
  EXPECT_EQ(getData().result, 0);
}

// Requests

TEST_F(TFTPops, AFileNameWithoutATerminatorEndsWithItsDatagram) {
  ReceivedDatagram datagram;
  std::memset(&datagram, 'x', sizeof datagram);
  queued(wire(1) + "name");
  ASSERT_TRUE(TFTPreceive(datagram, boardNow() + std::chrono::seconds(1)));
  EXPECT_STREQ(TFTPfileName(datagram), "name");
}

TEST_F(TFTPops, AFileNameMayFillTheWholeDatagram) {
  ReceivedDatagram datagram;
  const std::string name(queuedDatagramSize - 2, 'n');
  queued(wire(1) + name);
  ASSERT_TRUE(TFTPreceive(datagram, boardNow() + std::chrono::seconds(1)));
  EXPECT_EQ(TFTPfileName(datagram), name);
}

} // namespace
