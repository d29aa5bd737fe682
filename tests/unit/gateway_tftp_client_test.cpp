#include "simulator/scenario/tftp_client.h"

#include <gmock/gmock.h>

#include "tests/unit/fake_network.h"

using gateway::TftpClient;
using gateway::TransferResult;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

class GatewayTftpClient : public testing::Test {
protected:
  FakeNetwork m_network;
  TftpClient m_client{m_network};
};

} // namespace

TEST_F(GatewayTftpClient, ReadsAFileBlockByBlock) {
  m_network.answers = {block(1, std::string(512, 'a')), block(2, std::string(512, 'b')), block(3, "")};
  const TransferResult result = m_client.read("file");
  EXPECT_TRUE(result.isDone);
  EXPECT_EQ(result.content, std::string(512, 'a') + std::string(512, 'b'));
  EXPECT_THAT(m_network.sent, ElementsAre(request(1, "file"), ack(1), ack(2), ack(3)));
}

TEST_F(GatewayTftpClient, WritesAFileBlockByBlock) {
  m_network.answers = {ack(0), ack(1), ack(2)};
  const std::string content(512, 'a');
  EXPECT_TRUE(m_client.write("file", content).isDone);
  EXPECT_THAT(m_network.sent, ElementsAre(request(2, "file"), block(1, content), block(2, "")));
}

TEST_F(GatewayTftpClient, SaysWhatTheUnitRefuses) {
  m_network.answers = {failure(0, "File Not Supported")};
  EXPECT_EQ(m_client.read("file").error, "File Not Supported");
  m_network.answers = {ack(0), failure(0, "Write data failed")};
  const TransferResult result = m_client.write("file", "text");
  EXPECT_FALSE(result.isDone);
  EXPECT_EQ(result.error, "Write data failed");
}

TEST_F(GatewayTftpClient, RepeatsWhatIsNotAnswered) {
  m_network.answers = {silence, silence, block(1, std::string(512, 'a')), silence, block(2, "b")};
  EXPECT_TRUE(m_client.read("file").isDone);
  EXPECT_THAT(m_network.sent,
              ElementsAre(request(1, "file"), request(1, "file"), request(1, "file"), ack(1), ack(1), ack(2)));
  EXPECT_EQ(m_network.now(), 3 * TftpClient::timeout);
  m_network.sent.clear();
  m_network.answers = {ack(0), silence, ack(1)};
  EXPECT_TRUE(m_client.write("file", "text").isDone);
  EXPECT_THAT(m_network.sent, ElementsAre(request(2, "file"), block(1, "text"), block(1, "text")));
}

TEST_F(GatewayTftpClient, GivesUpAUnitThatDoesNotAnswer) {
  EXPECT_EQ(m_client.read("file").error, "the unit doesn't answer");
  EXPECT_THAT(m_network.sent, SizeIs(TftpClient::mostRequestRepeats + 1));
  EXPECT_EQ(m_network.now(), (TftpClient::mostRequestRepeats + 1) * TftpClient::timeout);
  m_network.sent.clear();
  m_network.answers = {ack(0)};
  EXPECT_EQ(m_client.write("file", "text").error, "the unit doesn't answer");
  EXPECT_THAT(m_network.sent, SizeIs(1 + TftpClient::mostRepeats + 1));
}

TEST_F(GatewayTftpClient, AcknowledgesABlockThatComesAgain) {
  m_network.answers = {block(1, std::string(512, 'a')), block(1, std::string(512, 'a')), block(2, "b")};
  EXPECT_EQ(m_client.read("file").content, std::string(512, 'a') + "b");
  EXPECT_THAT(m_network.sent, ElementsAre(request(1, "file"), ack(1), ack(1), ack(2)));
}

TEST_F(GatewayTftpClient, DoesNotAnswerAnAcknowledgementThatComesAgain) {
  m_network.answers = {ack(0), ack(0), ack(1)};
  EXPECT_TRUE(m_client.write("file", "text").isDone);
  EXPECT_THAT(m_network.sent, ElementsAre(request(2, "file"), block(1, "text")));
}

TEST_F(GatewayTftpClient, IgnoresWhatBelongsToNothing) {
  m_network.answers = {"", "x", ack(0), block(7, "x"), std::string("\0\x09\0\x01", 4), block(1, "text")};
  EXPECT_EQ(m_client.read("file").content, "text");
  m_network.answers = {block(9, "x"), ack(0), ack(7), ack(1)};
  EXPECT_TRUE(m_client.write("file", "text").isDone);
}

TEST_F(GatewayTftpClient, CountsBlocksOnBeyondTheHighestNumber) {
  std::string content;
  m_network.answers = {ack(0)};
  for (unsigned number = 1; number <= 0x10001; ++number) {
    content += std::string(512, 'a');
    m_network.answers.push_back(ack(number));
  }
  m_network.answers.push_back(ack(0x10002));
  EXPECT_TRUE(m_client.write("file", content).isDone);
  EXPECT_EQ(m_network.sent.back(), block(2, ""));
}

// The unit answers the last sender, whose transfer needn't be the one that it is busy with.

TEST_F(GatewayTftpClient, AcknowledgesTheLastBlockOfTheReadBeforeAndGoesOn) {
  for (const unsigned late : {1U, 2U}) {
    m_network.answers = {block(1, std::string(512, 'a')), block(2, "old")};
    if (late == 1)
      m_network.answers = {block(1, "old")};
    EXPECT_TRUE(m_client.read("first").isDone);
    m_network.sent.clear();
    m_network.answers = {block(late, "old"), silence, block(1, "new")};
    EXPECT_EQ(m_client.read("second").content, "new");
    EXPECT_THAT(m_network.sent, ElementsAre(request(1, "second"), ack(late), request(1, "second"), ack(1)));
    m_network.answers = {block(1, "old")};
    EXPECT_TRUE(m_client.read("first").isDone);
    m_network.sent.clear();
    m_network.answers = {block(1, "old"), silence, ack(0), ack(1)};
    EXPECT_TRUE(m_client.write("third", "x").isDone);
    EXPECT_THAT(m_network.sent, ElementsAre(request(2, "third"), ack(1), request(2, "third"), block(1, "x")));
    m_network.sent.clear();
  }
}

TEST_F(GatewayTftpClient, ReadsAFileAgainThatHasNotChanged) {
  for (int time = 0; time < 2; ++time) {
    m_network.answers = {block(1, "text")};
    EXPECT_EQ(m_client.read("file").content, "text");
  }
  EXPECT_THAT(m_network.sent, ElementsAre(request(1, "file"), ack(1), request(1, "file"), ack(1)));
}

TEST_F(GatewayTftpClient, AcknowledgesWhatComesToThePortBefore) {
  m_network.answers = {block(1, "text")};
  m_client.read("first");
  m_network.late = {block(1, "text")};
  m_network.answers = {ack(0), ack(1)};
  EXPECT_TRUE(m_client.write("second", "x").isDone);
  EXPECT_THAT(m_network.sentLate, ElementsAre(ack(1)));
  EXPECT_EQ(m_network.ports, 2);
}

TEST_F(GatewayTftpClient, WaitsForATimeAndAcknowledgesMeanwhile) {
  m_network.sent.clear();
  m_network.answers = {block(1, "text"), ack(5)};
  m_client.idle(std::chrono::seconds(5));
  EXPECT_EQ(m_network.now(), std::chrono::seconds(5));
  EXPECT_THAT(m_network.sent, ElementsAre(ack(1)));
  EXPECT_THAT(m_network.answers, IsEmpty());
}
