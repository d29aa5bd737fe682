#include <algorithm>
#include <cstring>
#include <optional>
#include <thread>

#include "tests/unit/tftp_station.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/TFTPserver.h"
#include "userapps/FTM/manu.h"

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::Not;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;

namespace {

// The files behind the server, and the download channel that images go to. The linker puts these in
// the place of the service's own (see CMakeLists.txt).

struct Files {
  std::optional<std::string> readable;                      ///< what every name reads as; without it reads are refused
  ST_TFTP_ERROR* refusal = nullptr;                         ///< of reads, and of writes when it is set
  std::vector<std::string> read;                            ///< names
  std::vector<std::pair<std::string, std::string>> written; ///< name and text
};
Files files;

struct ChannelCall {
  std::string step;
  std::string input; ///< header and data
  std::uint16_t inLength;
  unsigned long fileSize;
  int acknowledged; ///< number of the block acknowledged last
};
struct Channel {
  std::vector<ChannelCall> calls;
  ST_DISC_CHAN_ATTRIBS last;
  std::string abortStep; ///< the step that fails
  int abortCall = 1;     ///< on which of its calls
  std::string abortText;
};
Channel channel;

std::vector<std::string> channelSteps() {
  std::vector<std::string> steps;
  for (const ChannelCall& call : channel.calls)
    steps.push_back(call.step);
  return steps;
}

void channelStep(const char* step, ST_DISC_CHAN_ATTRIBS* attribs) {
  channel.calls.push_back({step,
                           {reinterpret_cast<const char*>(attribs->pInputData), attribs->inLength},
                           attribs->inLength,
                           attribs->hexAttrib.fileSize,
                           ntohs(SendPkt.UN.ACK_PKT.AckBlockNum)});
  channel.last = *attribs;
  if (step != channel.abortStep || --channel.abortCall != 0)
    return;
  attribs->pOutputData->OpCode = htons(eERROR);
  std::memcpy(attribs->pOutputData->UN.ERROR_PKT.ErrorMsg, channel.abortText.data(), channel.abortText.size());
}

} // namespace

extern "C" {
const char* wrap_getFtmXml(const char* name, ST_TFTP_ERROR** error) asm("__wrap__Z9getFtmXmlPKcPP13ST_TFTP_ERROR");
ST_TFTP_ERROR* wrap_putFtmXml(char* text, const char* name) asm("__wrap__Z9putFtmXmlPcPKc");
void wrap_dataFirst(ST_DISC_CHAN_ATTRIBS* attribs) asm("__wrap__Z14DISC_dataFirstP20ST_DISC_CHAN_ATTRIBS");
void wrap_dataAsm(ST_DISC_CHAN_ATTRIBS* attribs) asm("__wrap__Z12DISC_dataAsmP20ST_DISC_CHAN_ATTRIBS");
void wrap_dataFinis(ST_DISC_CHAN_ATTRIBS* attribs) asm("__wrap__Z14DISC_dataFinisP20ST_DISC_CHAN_ATTRIBS");
void wrap_hexFirst(ST_DISC_CHAN_ATTRIBS* attribs) asm("__wrap__Z13DISC_hexFirstP20ST_DISC_CHAN_ATTRIBS");
void wrap_hexAsm(ST_DISC_CHAN_ATTRIBS* attribs) asm("__wrap__Z11DISC_hexAsmP20ST_DISC_CHAN_ATTRIBS");
void wrap_hexFinis(ST_DISC_CHAN_ATTRIBS* attribs) asm("__wrap__Z13DISC_hexFinisP20ST_DISC_CHAN_ATTRIBS");
void wrap_burnHexImage() asm("__wrap__Z17DISC_burnHexImagev");
void wrap_ReBoot(int option) asm("__wrap__Z6ReBooti");
void wrap_petTheDog() asm("__wrap__Z13WDOGPetTheDogv");
void* real_calloc(std::size_t count, std::size_t size) asm("__real_calloc");
void* wrap_calloc(std::size_t count, std::size_t size) asm("__wrap_calloc");
int real_board_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*) asm("__real_board_cond_timedwait");
int wrap_board_cond_timedwait(pthread_cond_t*, pthread_mutex_t*, const timespec*) asm("__wrap_board_cond_timedwait");
}

const char* wrap_getFtmXml(const char* name, ST_TFTP_ERROR** error) {
  files.read.emplace_back(name);
  *error = files.readable ? nullptr : files.refusal;
  return files.readable ? files.readable->c_str() : nullptr;
}

ST_TFTP_ERROR* wrap_putFtmXml(char* text, const char* name) {
  files.written.emplace_back(name, text);
  return files.refusal;
}

void wrap_dataFirst(ST_DISC_CHAN_ATTRIBS* attribs) {
  channelStep("dataFirst", attribs);
}
void wrap_dataAsm(ST_DISC_CHAN_ATTRIBS* attribs) {
  channelStep("dataAsm", attribs);
}
void wrap_dataFinis(ST_DISC_CHAN_ATTRIBS* attribs) {
  channelStep("dataFinis", attribs);
}
void wrap_hexFirst(ST_DISC_CHAN_ATTRIBS* attribs) {
  channelStep("hexFirst", attribs);
}
void wrap_hexAsm(ST_DISC_CHAN_ATTRIBS* attribs) {
  channelStep("hexAsm", attribs);
}
void wrap_hexFinis(ST_DISC_CHAN_ATTRIBS* attribs) {
  channelStep("hexFinis", attribs);
}
void wrap_burnHexImage() {
  channel.calls.push_back({"burnHexImage at " + std::to_string(gateway::clock::nowMs()), {}, 0, 0, 0});
}
void wrap_ReBoot(int option) {
  channel.calls.push_back(
      {"ReBoot " + std::to_string(option) + " at " + std::to_string(gateway::clock::nowMs()), {}, 0, 0, 0});
}
void wrap_petTheDog() {
  channel.calls.push_back({"petTheDog", {}, 0, 0, 0});
}

namespace {

bool writeBufferFails;
bool waitsAreEndless; // nothing but an arrival ends them
int endlessWaits;
} // namespace

void* wrap_calloc(std::size_t count, std::size_t size) {
  return writeBufferFails && size > 8000 ? nullptr : real_calloc(count, size);
}

int wrap_board_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline) {
  if (!waitsAreEndless)
    return real_board_cond_timedwait(condition, mutex, deadline);
  ++endlessWaits;
  return pthread_cond_wait(condition, mutex);
}

namespace {

class TFTPserver : public TftpStation {
protected:
  TFTPserver() {
    files = {};
    channel = {};
    writeBufferFails = false;
    waitsAreEndless = false;
    ServerBlockSeqError = 0;
  }

  /// Serves whatever is queued or arrives in the next minute of the clock.
  void serve() { TftpTaskRound(m_task); }

  /// Serves a read request at once, with the given answers of the station in the queue behind it.
  std::vector<std::string> read(const std::vector<std::string>& answers = {}) {
    return exchange(rrq("f.xml"), answers);
  }
  std::vector<std::string> write(const std::string& name, const std::vector<std::string>& blocks = {}) {
    return exchange(wrq(name), blocks);
  }

  std::vector<std::string> exchange(const std::string& request, const std::vector<std::string>& answers) {
    queued(request);
    for (const std::string& answer : answers)
      queued(answer);
    CaptureStdout();
    serve();
    output = GetCapturedStdout();
    return sent();
  }

  /// Expects one packet to have been sent by a time of the clock since the last look.
  void expectSentBy(std::int64_t ms, const std::string& packet) {
    gateway::clock::at(ms, [this, ms, packet] { EXPECT_THAT(sent(), ElementsAre(packet)) << "by " << ms << " ms"; });
  }

  /// DATA packets of a file, without the one that is empty because the file has whole blocks only.
  static std::vector<std::string> blocksOf(const std::string& text) {
    std::vector<std::string> blocks;
    for (std::size_t at = 0; at < text.size(); at += 512)
      blocks.push_back(data(static_cast<unsigned int>(blocks.size() + 1), text.substr(at, 512)));
    return blocks;
  }

  static std::vector<std::string> acks(unsigned int first, unsigned int last) {
    std::vector<std::string> packets;
    for (unsigned int block = first; block <= last; ++block)
      packets.push_back(ack(block));
    return packets;
  }

  std::string output; ///< what the last exchange printed

  static constexpr auto timeoutText = "FTM_getAck: ack packet timeout! timeoutCntr= 13\n";

private:
  TftpTaskState m_task;
};

ST_TFTP_ERROR fileNotSupported{0, "File Not Supported"};

// Types of files

TEST(checkFileType, LooksAtTheTextFromTheLastDotOnly) {
  EXPECT_EQ(checkFileType("a.upg"), UPG);
  EXPECT_EQ(checkFileType("a.hex"), HEX);
  EXPECT_EQ(checkFileType(".upg"), UPG);
  EXPECT_EQ(checkFileType("a.hex.upg"), UPG);
  EXPECT_EQ(checkFileType("a.upg.xml"), OTHER);
  EXPECT_EQ(checkFileType("a.upgx"), OTHER);
  EXPECT_EQ(checkFileType("upg"), OTHER);
  EXPECT_EQ(checkFileType(""), OTHER);
}

TEST(checkFileType, IsCaseSensitiveAndKnowsNoIniFiles) {
  EXPECT_EQ(checkFileType("a.UPG"), OTHER);
  EXPECT_EQ(checkFileType("a.Hex"), OTHER);
  EXPECT_EQ(checkFileType("a.ini"), OTHER);
}

// Reading

TEST_F(TFTPserver, AReadSendsBlocksAndWaitsForTheAcknowledgementOfEach) {
  const std::string text = fileOf(1300);
  files.readable = text;
  EXPECT_THAT(read(acks(1, 3)),
              ElementsAre(data(1, text.substr(0, 512)), data(2, text.substr(512, 512)), data(3, text.substr(1024))));
  EXPECT_THAT(files.read, ElementsAre("f.xml"));
  EXPECT_EQ(output, "");
  EXPECT_EQ(gateway::clock::nowMs(), 0);
}

TEST_F(TFTPserver, NoBlockIsSentBeforeTheLastOneWasAcknowledged) {
  files.readable = fileOf(600);
  queued(rrq("f"));
  gateway::clock::at(100, [this] { EXPECT_EQ(sent().size(), 1U); });
  arrives(200, ack(1));
  gateway::clock::at(300, [this] { EXPECT_EQ(sent().size(), 1U); });
  arrives(400, ack(2));
  serve();
  EXPECT_EQ(gateway::clock::nowMs(), 400);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(TFTPserver, ATextOf512BytesIsReadAsAFullBlockAndAnEmptyOne) {
  files.readable = fileOf(512);
  EXPECT_THAT(read(acks(1, 2)), ElementsAre(data(1, *files.readable), data(2, "")));
}

TEST_F(TFTPserver, AMultipleOf512BytesEndsWithAnEmptyBlock) {
  files.readable = fileOf(1536);
  const auto packets = read(acks(1, 4));
  ASSERT_EQ(packets.size(), 4U);
  EXPECT_EQ(packets[3], data(4, ""));
}

TEST_F(TFTPserver, AnEmptyTextIsReadAsOneEmptyBlock) {
  files.readable = "";
  EXPECT_THAT(read({ack(1)}), ElementsAre(data(1, "")));
}

TEST_F(TFTPserver, ARefusedReadIsAnsweredWithTheErrorRecordAndLogged) {
  ST_TFTP_ERROR record{2, "Fail to Create Xml File"};
  files.refusal = &record;
  EXPECT_THAT(read(), ElementsAre(error(2, "Fail to Create Xml File")));
  EXPECT_THAT(logged(), ElementsAre(debugLine("read(): invalid filename"), "err TFTP read: invalid filename"));
}

TEST_F(TFTPserver, ARefusalWithoutATextIsAnsweredWithAnEmptyOne) {
  ST_TFTP_ERROR record{0, nullptr};
  files.refusal = &record;
  EXPECT_THAT(read(), ElementsAre(error(0, "")));
  files.refusal = nullptr;
  EXPECT_THAT(read(), ElementsAre(error(0, "")));
}

TEST_F(TFTPserver, ADuplicateAcknowledgementHasTheBlockSentAgainOnce) {
  files.readable = fileOf(600);
  const auto blocks = blocksOf(*files.readable);
  EXPECT_THAT(read({ack(1), ack(1), ack(2)}), ElementsAre(blocks[0], blocks[1], blocks[1]));
  EXPECT_EQ(ServerBlockSeqError, 1);
  EXPECT_EQ(output, "");
}

TEST_F(TFTPserver, ASecondDuplicateAcknowledgementForABlockEndsTheRead) {
  files.readable = fileOf(600);
  const auto blocks = blocksOf(*files.readable);
  EXPECT_THAT(read({ack(1), ack(1), ack(1), ack(2)}),
              ElementsAre(blocks[0], blocks[1], blocks[1], error(0, "expected ACK for block 2 - got block 1\n")));
  EXPECT_EQ(output, "read(): expected ACK for block 2 - got block 1\n");
  EXPECT_EQ(ServerBlockSeqError, 1);
}

TEST_F(TFTPserver, EveryBlockMayBeSentAgainOnce) {
  files.readable = fileOf(1100);
  const auto blocks = blocksOf(*files.readable);
  EXPECT_THAT(read({ack(0), ack(1), ack(1), ack(2), ack(2), ack(3)}),
              ElementsAre(blocks[0], blocks[0], blocks[1], blocks[1], blocks[2], blocks[2]));
  EXPECT_EQ(ServerBlockSeqError, 3);
}

TEST_F(TFTPserver, AnAcknowledgementOfAnyOtherBlockEndsTheRead) {
  files.readable = fileOf(600);
  const auto blocks = blocksOf(*files.readable);
  EXPECT_THAT(read({ack(7)}), ElementsAre(blocks[0], error(0, "expected ACK for block 1 - got block 7\n")));
  EXPECT_EQ(output, "read(): expected ACK for block 1 - got block 7\n");
  EXPECT_EQ(ServerBlockSeqError, 0);
}

TEST_F(TFTPserver, AnAcknowledgementTwoBehindEndsTheRead) {
  files.readable = fileOf(1100);
  const auto packets = read({ack(1), ack(2), ack(1)});
  ASSERT_EQ(packets.size(), 4U);
  EXPECT_EQ(packets[3], error(0, "expected ACK for block 3 - got block 1\n"));
}

TEST_F(TFTPserver, ABlockThatIsNotAcknowledgedIsSentAgainAfterTheTimeOut) {
  files.readable = fileOf(10);
  queued(rrq("f"));
  expectSentBy(3249, data(1, fileOf(10)));
  expectSentBy(3251, data(1, fileOf(10)));
  arrives(4000, ack(1));
  CaptureStdout();
  serve();
  EXPECT_EQ(GetCapturedStdout(), timeoutText);
  EXPECT_EQ(gateway::clock::nowMs(), 4000);
}

TEST_F(TFTPserver, ASecondTimeOutForABlockEndsTheReadWithoutAnError) {
  files.readable = fileOf(10);
  EXPECT_THAT(read(), ElementsAre(data(1, fileOf(10)), data(1, fileOf(10))));
  EXPECT_EQ(output, timeoutText + std::string(timeoutText) + "read(): error response to resent packet; abort send");
  EXPECT_EQ(gateway::clock::nowMs(), 6500);
}

TEST_F(TFTPserver, ATimeOutUsesUpTheResendThatADuplicateAcknowledgementWouldGet) {
  files.readable = fileOf(10);
  queued(rrq("f"));
  arrives(3500, ack(0));
  CaptureStdout();
  serve();
  GetCapturedStdout();
  EXPECT_THAT(sent(), ElementsAre(data(1, fileOf(10)), data(1, fileOf(10)),
                                  error(0, "expected ACK for block 1 - got block 0\n")));
}

TEST_F(TFTPserver, AnErrorFromTheStationDoesNotEndARead) {
  files.readable = fileOf(10);
  queued(rrq("f"));
  arrives(10, error(0, "cancelled"));
  arrives(20, ack(1));
  CaptureStdout();
  serve();
  EXPECT_EQ(GetCapturedStdout(), "FTM_getAck: expecting ack packet, got error packet\n");
  EXPECT_THAT(sent(), ElementsAre(data(1, fileOf(10))));
  EXPECT_EQ(gateway::clock::nowMs(), 20);
}

TEST_F(TFTPserver, ARequestDuringAReadIsLost) {
  files.readable = fileOf(10);
  EXPECT_THAT(read({rrq("other"), ack(1)}), ElementsAre(data(1, fileOf(10))));
  EXPECT_THAT(files.read, ElementsAre("f.xml"));
  EXPECT_EQ(pstTFTPPacket.load(), nullptr);
}

TEST_F(TFTPserver, BlockNumbersWrapAfter65535) {
  files.readable = std::string(65536 * 512 + 5, 'x');
  std::vector<std::string> answers;
  for (unsigned int block = 1; block <= 65537; ++block)
    answers.push_back(ack(block & 0xffff));
  read(answers);
  EXPECT_EQ(output, "");
  EXPECT_EQ(pstTFTPPacket.load(), nullptr) << "the read ended early";
  EXPECT_EQ(gateway::clock::nowMs(), 0);
}

TEST_F(TFTPserver, ADuplicateAcknowledgementIsToleratedWhereBlockNumbersWrap) {
  files.readable = std::string(65535 * 512 + 5, 'x');
  std::vector<std::string> answers = acks(1, 65535);
  answers.push_back(ack(65535));
  answers.push_back(ack(0));
  read(answers);
  EXPECT_EQ(output, "");
  EXPECT_EQ(ServerBlockSeqError, 1);
  EXPECT_EQ(pstTFTPPacket.load(), nullptr);
}

TEST_F(TFTPserver, AFileNameWithoutATerminatorEndsWithItsDatagram) {
  files.readable = "x";
  exchange(wire(1) + "FTM_ModemInfo.xml", {ack(1)});
  exchange(wire(1), {ack(1)});
  exchange(wire(1) + std::string(514, 'n'), {ack(1)});
  EXPECT_THAT(files.read, ElementsAre("FTM_ModemInfo.xml", "", std::string(514, 'n')));
}

TEST_F(TFTPserver, OptionsAndTheModeOfARequestAreNotLookedAt) {
  files.readable = "x";
  EXPECT_THAT(exchange(wire(1) + "f\0netascii\0blksize\0"s + "1400\0tsize\0"s + "0\0"s, {ack(1)}),
              ElementsAre(data(1, "x")));
  EXPECT_THAT(exchange(wire(1) + "f", {ack(1)}), ElementsAre(data(1, "x")));
}

// Writing

TEST_F(TFTPserver, AWriteIsAcknowledgedBlockByBlockAndAppliedBeforeItsLastAcknowledgement) {
  const std::string text = fileOf(1300);
  EXPECT_THAT(write("config.xml", blocksOf(text)), ElementsAre(ack(0), ack(1), ack(2), ack(3)));
  EXPECT_THAT(files.written, ElementsAre(std::pair("config.xml"s, text)));
  EXPECT_EQ(gateway::clock::nowMs(), 0);
  EXPECT_THAT(logged(), IsEmpty());
}

TEST_F(TFTPserver, ARefusedWriteIsAnsweredWithTheErrorRecordInsteadOfTheLastAcknowledgement) {
  files.refusal = &fileNotSupported;
  EXPECT_THAT(write("f", {data(1, "x")}), ElementsAre(ack(0), error(0, "File Not Supported")));
}

TEST_F(TFTPserver, ARefusedWriteWithoutATextIsAnsweredWithAnEmptyOne) {
  ST_TFTP_ERROR record{1, nullptr};
  files.refusal = &record;
  EXPECT_THAT(write("f", {data(1, "x")}), ElementsAre(ack(0), error(1, "")));
}

TEST_F(TFTPserver, AWriteOf512BytesNeedsAnEmptyBlockToFinish) {
  EXPECT_THAT(write("f", {data(1, fileOf(512)), data(2, "")}), ElementsAre(ack(0), ack(1), ack(2)));
  EXPECT_THAT(files.written, ElementsAre(std::pair("f"s, fileOf(512))));
}

TEST_F(TFTPserver, AnEmptyFileIsApplied) {
  EXPECT_THAT(write("f", {data(1, "")}), ElementsAre(ack(0), ack(1)));
  EXPECT_THAT(files.written, ElementsAre(std::pair("f"s, ""s)));
}

TEST_F(TFTPserver, AFileOf7648BytesIsTaken) {
  const std::string text = fileOf(7648);
  auto packets = acks(0, 15);
  EXPECT_THAT(write("f", blocksOf(text)), ElementsAreArray(packets));
  EXPECT_THAT(files.written, ElementsAre(std::pair("f"s, text)));
}

TEST_F(TFTPserver, AFileOf7649BytesIsRefusedAfterTheFifteenthBlock) {
  auto packets = acks(0, 14);
  packets.push_back(error(3, "file allocation size exceeded"));
  EXPECT_THAT(write("f", blocksOf(fileOf(7649))), ElementsAreArray(packets));
  EXPECT_THAT(files.written, IsEmpty());
  EXPECT_THAT(logged(), ElementsAre(debugLine("write(): file allocation size exceeded")));
}

TEST_F(TFTPserver, AFileOfFifteenFullBlocksIsRefused) {
  const auto packets = write("f", blocksOf(fileOf(7680)));
  ASSERT_EQ(packets.size(), 16U);
  EXPECT_EQ(packets[15], error(3, "file allocation size exceeded"));
}

TEST_F(TFTPserver, ADuplicateBlockIsAcknowledgedOncePerDuplicateAndTakenOnce) {
  const auto blocks = blocksOf(fileOf(1100));
  EXPECT_THAT(write("f", {blocks[0], blocks[0], blocks[0], blocks[1], blocks[1], blocks[2]}),
              ElementsAre(ack(0), ack(1), ack(1), ack(1), ack(2), ack(2), ack(3)));
  EXPECT_THAT(files.written, ElementsAre(std::pair("f"s, fileOf(1100))));
  EXPECT_EQ(ServerBlockSeqError, 3);
  EXPECT_THAT(logged(), ElementsAre(debugLine("write(): expected data for block 2 - got block 1"),
                                    debugLine("write(): expected data for block 2 - got block 1"),
                                    debugLine("write(): expected data for block 3 - got block 2")));
}

TEST_F(TFTPserver, ADuplicateThatIsShorterThanABlockDoesNotEndTheFile) {
  EXPECT_THAT(write("f", {data(0, ""), data(1, fileOf(512)), data(1, "short"), data(2, "end")}),
              ElementsAre(ack(0), ack(0), ack(1), ack(1), ack(2)));
  EXPECT_THAT(files.written, ElementsAre(std::pair("f"s, fileOf(512) + "end")));
}

TEST_F(TFTPserver, ABlockTwoBehindEndsTheWrite) {
  const auto blocks = blocksOf(fileOf(1536));
  EXPECT_THAT(write("f", {blocks[0], blocks[1], blocks[0]}),
              ElementsAre(ack(0), ack(1), ack(2), error(0, "expected block 3 - received block 1")));
  EXPECT_THAT(files.written, IsEmpty());
  EXPECT_THAT(logged(), ElementsAre(debugLine("write(): expected data for block 3 - got block 1")));
  EXPECT_EQ(ServerBlockSeqError, 0);
}

TEST_F(TFTPserver, ABlockAheadEndsTheWrite) {
  EXPECT_THAT(write("f", {data(65535, "x")}), ElementsAre(ack(0), error(0, "expected block 1 - received block 65535")));
}

TEST_F(TFTPserver, TheLastAcknowledgementIsSentAgainAfterATimeOut) {
  queued(wrq("f"));
  expectSentBy(3009, ack(0));
  expectSentBy(3011, ack(0));
  arrives(4000, data(1, fileOf(512)));
  expectSentBy(7009, ack(1));
  expectSentBy(7011, ack(1));
  arrives(7500, data(2, "end"));
  serve();
  EXPECT_THAT(sent(), ElementsAre(ack(2)));
  EXPECT_THAT(files.written, ElementsAre(std::pair("f"s, fileOf(512) + "end")));
  EXPECT_THAT(logged(), Contains(debugLine("write(): error getting data packet from expected block 1")));
}

TEST_F(TFTPserver, TheFourthTimeOutInARowEndsTheWriteWithBothErrors) {
  EXPECT_THAT(write("f", {data(1, fileOf(512))}), ElementsAre(ack(0), ack(1), ack(1), ack(1), ack(1),
                                                              error(0, "Timed out on data packet, expected block = 2"),
                                                              error(0, "Bad data packet, expected block = 2")));
  EXPECT_EQ(gateway::clock::nowMs(), 4 * 3010);
  EXPECT_THAT(files.written, IsEmpty());
}

TEST_F(TFTPserver, TimeOutsAreCountedFromTheLastExpectedBlock) {
  queued(wrq("f"));
  const auto blocks = blocksOf(fileOf(1100));
  arrives(3 * 3010 + 500, blocks[0]);
  arrives(6 * 3010 + 1000, blocks[1]);
  arrives(9 * 3010 + 1500, blocks[2]);
  serve();
  EXPECT_THAT(files.written, ElementsAre(std::pair("f"s, fileOf(1100))));
}

TEST_F(TFTPserver, ADuplicateBlockDoesNotResetTheCountOfTimeOuts) {
  queued(wrq("f"));
  const std::string block = data(1, fileOf(512));
  arrives(10, block);
  arrives(10 + 3 * 3010 + 100, block);
  serve();
  EXPECT_EQ(gateway::clock::nowMs(), 10 + 3 * 3010 + 100 + 3010);
  EXPECT_THAT(sent(), ElementsAre(ack(0), ack(1), ack(1), ack(1), ack(1), ack(1),
                                  error(0, "Timed out on data packet, expected block = 2"),
                                  error(0, "Bad data packet, expected block = 2")));
}

TEST_F(TFTPserver, AnUnexpectedPacketEndsTheWriteWithOneError) {
  for (const std::string& packet : {error(0, "cancelled"), rrq("f"), wrq("f"), ack(1), "\0\3\0"s, "\3"s})
    EXPECT_THAT(write("f", {packet}), ElementsAre(ack(0), error(0, "Bad data packet, expected block = 1")));
  EXPECT_THAT(files.written, IsEmpty());
  EXPECT_THAT(logged(), Contains(debugLine("write(): error getting data packet from expected block 1")).Times(6));
}

TEST_F(TFTPserver, DataOfMoreThanABlockEndsTheWrite) {
  EXPECT_THAT(write("f", {data(1, fileOf(513))}), ElementsAre(ack(0), error(0, "data_len = 513")));
  EXPECT_THAT(write("f", {data(1, fileOf(696))}), ElementsAre(ack(0), error(0, "data_len = 696")));
  EXPECT_THAT(logged(), ElementsAre(debugLine("write(): data packet size too big"),
                                    debugLine("write(): data packet size too big")));
  EXPECT_THAT(files.written, IsEmpty());
}

TEST_F(TFTPserver, OversizeDataBehindALargeFileStaysInsideTheBuffer) {
  auto blocks = blocksOf(fileOf(14 * tftpBlockSize));
  blocks.push_back(data(15, fileOf(696)));
  EXPECT_THAT(write("f", blocks), Contains(error(0, "data_len = 696")));
}

TEST_F(TFTPserver, AWriteThatFindsNoMemoryIsRefusedAsTooBig) {
  writeBufferFails = true;
  EXPECT_THAT(write("f", {}), ElementsAre(error(3, "file allocation size exceeded")));
  EXPECT_THAT(files.written, IsEmpty());
}

// After a write

TEST_F(TFTPserver, TheLastBlockOfAWriteIsAcknowledgedAgainOnce) {
  const std::string last = data(1, "x");
  write("f", {last});
  EXPECT_THAT(exchange(last, {}), ElementsAre(ack(1)));
  EXPECT_THAT(exchange(last, {}), IsEmpty());
  EXPECT_THAT(logged(), ElementsAre(debugLine("TFTP_task: client resent data packet, will resend ack"),
                                    debugLine("TFTP_task: received unexpected data packet")));
  EXPECT_EQ(files.written.size(), 1U);
}

TEST_F(TFTPserver, TheLastBlockIsAcknowledgedAgainUntilTwelvePollsHavePassed) {
  write("f", {data(1, "x")});
  arrives(2999, data(1, "x"));
  serve();
  EXPECT_THAT(sent(), ElementsAre(ack(1)));
}

TEST_F(TFTPserver, TheLastBlockIsDroppedAfterTwelvePolls) {
  write("f", {data(1, "x")});
  arrives(3000, data(1, "x"));
  serve();
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(logged(), ElementsAre(debugLine("TFTP_task: received unexpected data packet")));
}

TEST_F(TFTPserver, OtherPacketsAfterAWriteDoNotShortenTheTimeForARepeatedLastBlock) {
  write("f", {data(1, "x")});
  for (int ms = 100; ms <= 2000; ms += 100) {
    arrives(ms, ack(1));
    serve();
  }
  arrives(2999, data(1, "x"));
  serve();
  EXPECT_THAT(sent(), ElementsAre(ack(1)));
}

TEST_F(TFTPserver, TheTimeForARepeatedLastBlockStartsAtTheEndOfTheWrite) {
  queued(wrq("f"));
  arrives(3000, data(1, fileOf(512)));
  arrives(5000, data(2, ""));
  arrives(7999, data(2, ""));
  serve();
  sent();
  serve();
  EXPECT_THAT(sent(), ElementsAre(ack(2)));
}

TEST_F(TFTPserver, ARefusedWriteIsAcknowledgedWhenItsLastBlockIsRepeated) {
  files.refusal = &fileNotSupported;
  write("f", {data(1, "x")});
  EXPECT_THAT(exchange(data(1, "x"), {}), ElementsAre(ack(1)));
}

TEST_F(TFTPserver, DataAfterAFailedWriteIsAnsweredWithAnErrorOnce) {
  write("f", {data(9, "x")});
  EXPECT_THAT(exchange(data(1, "x"), {}), ElementsAre(error(0, "receive block error")));
  EXPECT_THAT(exchange(data(1, "x"), {}), IsEmpty());
}

TEST_F(TFTPserver, AFailedWriteIsNotTakenForTheOneBeforeIt) {
  write("f", {data(1, "x")});
  write("f", {data(9, "x")});
  EXPECT_THAT(exchange(data(9, "x"), {}), ElementsAre(error(0, "receive block error")));
}

TEST_F(TFTPserver, AReadRequestEndsTheTimeForARepeatedLastBlock) {
  write("f", {data(1, "x")});
  files.readable = "y";
  read({ack(1)});
  EXPECT_THAT(exchange(data(1, "x"), {}), IsEmpty());
}

TEST_F(TFTPserver, DataWithoutAWriteIsDropped) {
  EXPECT_THAT(exchange(data(1, "x"), {}), IsEmpty());
  EXPECT_THAT(logged(), ElementsAre(debugLine("TFTP_task: received unexpected data packet")));
}

// Firmware images

TEST_F(TFTPserver, AnUpgImageIsPassedToTheDownloadChannelBlockByBlock) {
  const std::string image = fileOf(1100);
  EXPECT_THAT(write("image.upg", blocksOf(image)), ElementsAre(ack(0), ack(1), ack(2), ack(3)));
  EXPECT_THAT(channelSteps(), ElementsAre("dataFirst", "petTheDog", "dataAsm", "dataFinis"));
  EXPECT_EQ(channel.calls[0].input, "\0\0\0\1"s + image.substr(0, 512));
  EXPECT_EQ(channel.calls[2].input, "\0\0\0\2"s + image.substr(512, 512));
  EXPECT_EQ(channel.calls[3].input, "\0\0\0\3"s + image.substr(1024));
  EXPECT_EQ(channel.last.caller, OWNER_TFTP);
  EXPECT_EQ(channel.last.upgradeVersion, 1);
  EXPECT_EQ(channel.last.hexAttrib.fileSize, 0U);
  EXPECT_THAT(logged(), ElementsAre(debugLine("write(): upg download started."),
                                    debugLine("write(): upg downloaded successfully. Last block = 3")));
  EXPECT_THAT(files.written, IsEmpty());
  EXPECT_EQ(gateway::clock::nowMs(), 0);
}

TEST_F(TFTPserver, AHexImageIsBurntAndTheDeviceRebootedThreeSecondsLater) {
  const std::string image = fileOf(1100);
  EXPECT_THAT(write("image.hex", blocksOf(image)), ElementsAre(ack(0), ack(1), ack(2), ack(3)));
  EXPECT_THAT(channelSteps(), ElementsAre("hexFirst", "hexAsm", "petTheDog", "hexAsm", "hexFinis", "burnHexImage at 0",
                                          "ReBoot 0 at 3000"));
  EXPECT_EQ(channel.calls[0].inLength, 516);
  EXPECT_EQ(channel.calls[1].input, "\0\0\0\1"s + image.substr(0, 512));
  EXPECT_EQ(channel.calls[1].fileSize, 0U);
  EXPECT_EQ(channel.calls[4].input, "\0\0\0\3"s + image.substr(1024));
  EXPECT_EQ(channel.calls[4].inLength, 76 + 4);
  EXPECT_EQ(channel.calls[4].fileSize, ~0UL);
  EXPECT_THAT(logged(), ElementsAre(debugLine("write(): hex download started."),
                                    debugLine("write(): upg downloaded successfully. Last block = 3")));
  EXPECT_THAT(files.written, IsEmpty());
}

TEST_F(TFTPserver, TheLastBlockOfAnImageIsAcknowledgedBeforeItIsPassedOn) {
  for (const char* name : {"image.upg", "image.hex"}) {
    write(name, blocksOf(fileOf(1100)));
    const auto call = std::ranges::find_if(channel.calls, [](const auto& one) { return one.step.ends_with("Finis"); });
    ASSERT_NE(call, channel.calls.end());
    EXPECT_EQ(call->acknowledged, 3) << name;
    EXPECT_EQ(channel.calls.front().acknowledged, 0) << name;
    channel.calls.clear();
  }
}

TEST_F(TFTPserver, AnImageOfOneBlockGetsNoFinalAcknowledgement) {
  EXPECT_THAT(write("image.upg", {data(1, "x")}), ElementsAre(ack(0)));
  EXPECT_THAT(channelSteps(), ElementsAre("dataFirst"));
  EXPECT_THAT(write("image.hex", {data(1, "x")}), ElementsAre(ack(0)));
  EXPECT_THAT(channelSteps(), ElementsAre("dataFirst", "hexFirst", "hexAsm"));
  EXPECT_THAT(logged(),
              ElementsAre(debugLine("write(): upg download started."), debugLine("write(): hex download started.")));
}

TEST_F(TFTPserver, TheRepeatedOnlyBlockOfAnImageIsAcknowledged) {
  write("image.upg", {data(1, "x")});
  EXPECT_THAT(exchange(data(1, "x"), {}), ElementsAre(ack(1)));
}

TEST_F(TFTPserver, AnImageOfWholeBlocksEndsWithAnEmptyBlock) {
  EXPECT_THAT(write("image.upg", {data(1, fileOf(512)), data(2, "")}), ElementsAre(ack(0), ack(1), ack(2)));
  EXPECT_THAT(channelSteps(), ElementsAre("dataFirst", "dataFinis"));
  EXPECT_EQ(channel.calls[1].input, "\0\0\0\2"s);
}

TEST_F(TFTPserver, AnImageMayBeLargerThanAFile) {
  EXPECT_THAT(write("image.upg", blocksOf(fileOf(300 * 512 + 1))), ElementsAreArray(acks(0, 301)));
  EXPECT_EQ(channel.calls.back().input, "\0\0\x01\x2d"s + fileOf(300 * 512 + 1).back());
  EXPECT_THAT(logged(), Contains(debugLine("write(): upg downloaded successfully. Last block = 301")));
}

TEST_F(TFTPserver, AnImageWhoseFirstBlockIsRejectedIsAborted) {
  channel.abortStep = "dataFirst";
  channel.abortText = "wrong model";
  EXPECT_THAT(write("image.upg", blocksOf(fileOf(1100))), ElementsAre(ack(0), error(0, "wrong model")));
  EXPECT_THAT(logged(), ElementsAre(debugLine("write(): upg download started."),
                                    debugLine("write(): upg download aborted, error in block 1"),
                                    debugLine("         wrong model")));
}

TEST_F(TFTPserver, AnImageWhoseLaterBlockIsRejectedIsAborted) {
  channel.abortStep = "hexAsm";
  channel.abortCall = 2;
  channel.abortText = "bad checksum";
  EXPECT_THAT(write("image.hex", blocksOf(fileOf(1100))), ElementsAre(ack(0), ack(1), error(0, "bad checksum")));
  EXPECT_THAT(logged(), Contains(debugLine("write(): upg download aborted, error in block 2")));
  EXPECT_THAT(channelSteps(), Not(Contains("hexFinis")));
}

TEST_F(TFTPserver, AnAbortMessageWithoutATerminatorIsCut) {
  channel.abortStep = "dataFirst";
  channel.abortText = fileOf(512);
  EXPECT_THAT(write("image.upg", {data(1, "x")}), ElementsAre(ack(0), error(0, fileOf(511))));
}

TEST_F(TFTPserver, DataAfterAnAbortedImageIsAnsweredWithAnError) {
  channel.abortStep = "dataFirst";
  write("image.upg", {data(1, "x")});
  EXPECT_THAT(exchange(data(1, "x"), {}), ElementsAre(error(0, "receive block error")));
}

TEST_F(TFTPserver, AnImageThatFailsAtItsEndIsAcknowledgedButNeitherReportedNorBurnt) {
  channel.abortStep = "hexFinis";
  EXPECT_THAT(write("image.hex", blocksOf(fileOf(600))), ElementsAre(ack(0), ack(1), ack(2)));
  EXPECT_THAT(channelSteps(), ElementsAre("hexFirst", "hexAsm", "hexFinis"));
  EXPECT_THAT(logged(), ElementsAre(debugLine("write(): hex download started.")));
}

TEST_F(TFTPserver, ADuplicateBlockOfAnImageIsAcknowledgedButNotPassedOn) {
  const auto blocks = blocksOf(fileOf(600));
  EXPECT_THAT(write("image.upg", {blocks[0], blocks[0], blocks[1]}), ElementsAre(ack(0), ack(1), ack(1), ack(2)));
  EXPECT_THAT(channelSteps(), ElementsAre("dataFirst", "dataFinis"));
  EXPECT_EQ(channel.calls[1].input, "\0\0\0\2"s + fileOf(600).substr(512));
}

// Other packets

TEST_F(TFTPserver, AnyOtherPacketIsLoggedAndDropped) {
  std::vector<std::string> log;
  for (const std::string& packet : {ack(1), error(0, "x"), wire(0), wire(6), wire(0x0200), "\0"s, "\1"s}) {
    EXPECT_THAT(exchange(packet, {}), IsEmpty());
    log.push_back(debugLine("TFTP_task: received invalid opcode"));
    log.emplace_back("err TFTP_task: received invalid opcode");
  }
  EXPECT_EQ(logged(), log);
}

TEST_F(TFTPserver, AnIdleRoundWaitsForAMinute) {
  serve();
  EXPECT_EQ(gateway::clock::nowMs(), 60'000);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(TFTPserver, ARequestIsServedWhenItArrives) {
  files.readable = "x";
  arrives(12'345, rrq("f"));
  gateway::clock::at(12'346, [this] {
    EXPECT_THAT(sent(), ElementsAre(data(1, "x")));
    queued(ack(1));
  });
  serve();
  EXPECT_EQ(gateway::clock::nowMs(), 12'346);
}

TEST_F(TFTPserver, ADatagramFromASecondStationRedirectsTheRepliesOfTheTransferToIt) {
  files.readable = fileOf(600);
  const auto blocks = blocksOf(*files.readable);
  queued(rrq("f"));
  comesFrom(secondStation, 10, error(0, "hello"));
  comesFrom(secondStation, 20, ack(1));
  comesFrom(station, 30, ack(2));
  CaptureStdout();
  serve();
  GetCapturedStdout();
  EXPECT_THAT(station.received(), ElementsAre(blocks[0]));
  EXPECT_THAT(secondStation.received(), ElementsAre(blocks[1]));
}

TEST_F(TFTPserver, AnArrivalEndsEachWaitOfAWholeRead) {
  gateway::clock::useReal();
  files.readable = fileOf(16 * tftpBlockSize);
  constexpr int packets = 18;
  waitsAreEndless = true;
  endlessWaits = 0;
  std::thread receiving([] {
    for (int i = 0; i < packets; ++i)
      FtmReceive();
  });
  std::thread serving([this] { serve(); });
  std::string text;
  station.sendTo(server, rrq("f"));
  for (unsigned int block = 1; block < packets; ++block) {
    const std::string packet = station.receive();
    EXPECT_EQ(packet.substr(0, 4), wire(3) + wire(block));
    text += packet.substr(std::min<std::size_t>(packet.size(), 4));
    station.sendTo(server, ack(block));
  }
  receiving.join();
  serving.join();
  EXPECT_EQ(text, *files.readable);
  EXPECT_GT(endlessWaits, 0);
}

} // namespace
