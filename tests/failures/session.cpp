#include "tests/failures/session.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/board.h"
#include "simulator/clock.h"
#include "simulator/unit.h"
#include "tests/failures/calls.h"
#include "userapps/FTM/FTM_App.h"
#include "userapps/FTM/FTM_Task.h"
#include "userapps/FTM/TFTPserver.h"
#include "userapps/FTM/WrLsTask.h"

namespace session {

namespace {

constexpr int mostAttempts = 3;
constexpr std::string_view productionColumns[] = {"ModelNum", "SerialNum", "MacAddr", "Date", "Revision", "E164"};

std::string wire(unsigned int value) {
  return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

unsigned int wordAt(std::string_view packet, std::size_t at) {
  return static_cast<unsigned int>(static_cast<unsigned char>(packet[at]) << 8 |
                                   static_cast<unsigned char>(packet[at + 1]));
}

/// A station that answers each packet as it should, and asks again when it hears nothing.
class Station {
public:
  Answer read(std::string_view name) {
    m_file.clear();
    std::string answer = ask(eRRQ, name);
    return {.text = std::move(answer), .file = std::move(m_received)};
  }

  Answer write(std::string_view name, std::string_view text) {
    m_file = text;
    return {.text = ask(eWRQ, name), .file = {}};
  }

  void take(std::string_view packet) {
    if (!m_answer.empty())
      return; // a repeated one
    const unsigned int number = wordAt(packet, 2);
    switch (wordAt(packet, 0)) {
    case eERROR:
      m_answer = packet.size() > 5 ? packet.substr(4, packet.size() - 5) : withoutMessage;
      return;
    case eDATA:
      return takeBlock(number, packet.substr(4));
    default:
      return takeAcknowledgement(number);
    }
  }

private:
  std::string ask(unsigned int opcode, std::string_view name) {
    m_answer.clear();
    for (int attempt = 0; attempt < mostAttempts && m_answer.empty(); ++attempt) {
      m_received.clear();
      m_blocks = 0;
      sendSoon(wire(opcode).append(name).append(1, '\0').append("octet").append(1, '\0'));
      serve();
    }
    return m_answer.empty() ? std::string(silence) : m_answer;
  }

  void serve() {
    const calls::InService inService;
    do
      TftpTaskRound(m_state);
    while (pstTFTPPacket.load() != nullptr);
  }

  void takeBlock(unsigned int number, std::string_view block) {
    if (number == m_blocks + 1) {
      ++m_blocks;
      m_received.append(block);
    }
    if (block.size() < tftpBlockSize) {
      m_answer = served;
      m_received.resize(std::min(m_received.find('\0'), m_received.size()));
    }
    sendSoon(wire(eACK) + wire(number));
  }

  void takeAcknowledgement(unsigned int number) {
    const std::size_t start = number * tftpBlockSize;
    if (start > m_file.size()) {
      m_answer = taken;
      return;
    }
    sendSoon(wire(eDATA) + wire(number + 1) + m_file.substr(start, tftpBlockSize));
  }

  /// When the service next waits, as the receiving thread does it.
  static void sendSoon(const std::string& packet) {
    gateway::clock::at(gateway::clock::nowMs(), [packet] {
      const calls::InService inService;
      FtmClientSaveData(packet.data(), static_cast<std::uint16_t>(packet.size()));
    });
  }

  std::string m_file; // that it writes
  std::string m_received;
  unsigned int m_blocks = 0; // of which that is
  std::string m_answer;
  TftpTaskState m_state;
};

Station station;

void connectStation() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(2000);
  pClient = GetClientConnection(nullptr, 0, address);
}

Answer startUp() {
  {
    const calls::InService inService;
    FtmStartUp();
  }
  connectStation();
  return {.text = std::string(done), .file = {}};
}

template <void (*operation)()>
Answer doing() {
  const calls::InService inService;
  operation();
  return {.text = std::string(done), .file = {}};
}

/// Nobody asks for anything: the line trains. This moves the clock by a minute and takes no time.
Answer pause() {
  board_usleep(60'000'000);
  return {.text = std::string(done), .file = {}};
}

/// The wait itself has no end: the gateway gives up in its place.
Answer shutDown() {
  constexpr std::int64_t patienceMs = 60'000;
  static bool hasGivenUp = false; // may be set after the step, when it doesn't matter any more
  gateway::clock::at(gateway::clock::nowMs() + patienceMs, [] { hasGivenUp = bNESDShutdownComplete = true; });
  const calls::InService inService;
  setNEShutdown();
  waitForNEShutdown();
  return {.text = std::string(hasGivenUp ? unheard : done), .file = {}};
}

Step reading(const char* name) {
  return {name, served, [name] { return station.read(name); }};
}

Step writing(const char* what, const char* name, std::string text) {
  return {what, taken, [name, text = std::move(text)] { return station.write(name, text); }};
}

std::string productionFile(const std::string& value) {
  std::string text = "<MODEM_INFO>";
  for (const char* tag : {"MODEL_NUM", "SERIAL_NUM", "MAC_ADDR", "PROD_DATE", "PROD_REV", "E_164"})
    text.append("<").append(tag).append(">").append(value).append("</").append(tag).append(">");
  return text + "<BOOT_DELAY>7</BOOT_DELAY></MODEM_INFO>";
}

std::string config(const std::string& sections) {
  return "<?xml version=1.0 encoding=UTF-8?><TEST_CONFIG>" + sections + "</TEST_CONFIG>";
}

std::string entering(const std::string& test) {
  return "<ENTER_TEST>" + test + "</ENTER_TEST>";
}

std::vector<Step> allSteps() {
  const Step wirelessRound = {"wireless task", done, doing<WrLsTaskRound>};
  return {
      {"start-up", done, startUp},
      reading(szFTM_ModemInfo),
      writing("write production data", szFTM_ModemInfo, productionFile("first")),
      reading(szFTM_ModemInfo),
      reading(szFTM_TestModeOp),
      reading(szFTM_TestModeCfg),
      reading(szFTM_Statistics2),
      writing("enter LED test", szFTM_TestModeOp, entering("<LED/>")),
      writing("enter reset switch test", szFTM_TestModeOp, entering("<RESET_SWITCH/>")),
      writing("enter throughput test", szFTM_TestModeOp, entering("<THROUGHPUT VPI=\"0\" VCI=\"36\"/>")),
      writing("enter pair test", szFTM_TestModeOp, entering("<AUTO_PAIR/>")),
      reading(szFTM_TestModeOp),
      writing("set LEDs", szFTM_TestModeCfg,
              config("<LED><READY_GREEN_LED>ON</READY_GREEN_LED><SINGLE_LED NUM=\"12\" MODE=\"ON\"/></LED>")),
      writing("set all LEDs", szFTM_TestModeCfg, config("<LED><ALL_LEDS>ON</ALL_LEDS></LED>")),
      writing("set circuit", szFTM_TestModeCfg, config("<THROUGHPUT VPI=\"0\" VCI=\"37\"/>")),
      writing("set pair", szFTM_TestModeCfg, config("<AUTO_PAIR><AUTO_MODE>OUTER</AUTO_MODE></AUTO_PAIR>")),
      writing("set radio", szFTM_TestModeCfg,
              config("<BCOM_WIRELESS><SSID>line</SSID><CHANNEL>6</CHANNEL></BCOM_WIRELESS>")),
      wirelessRound,
      writing("set channel", szFTM_TestModeCfg, config("<BCOM_WIRELESS><CHANNEL>7</CHANNEL></BCOM_WIRELESS>")),
      wirelessRound,
      writing("set SSID", szFTM_TestModeCfg, config("<BCOM_WIRELESS><SSID>other</SSID></BCOM_WIRELESS>")),
      wirelessRound,
      writing("set telephone line", szFTM_TestModeCfg, config("<VOIP><CUT_RELAY_1>Enable</CUT_RELAY_1></VOIP>")),
      writing("set port speed", szFTM_TestModeCfg,
              config("<ETHER_PORT><ETHER_PORT_SPD>100</ETHER_PORT_SPD></ETHER_PORT>")),
      reading(szFTM_TestModeCfg),
      reading(szFTM_Statistics),
      reading(szFTM_Stats4port),
      reading(szFTM_Progress),
      reading(szFTM_Statistics),
      reading(szFTM_Stats4port),
      reading("FTM_Nothing.xml"),
      writing("write read-only file", szFTM_Statistics, "<A/>"),
      writing("write no document", szFTM_TestModeCfg, "nothing"),
      writing("resynchronise", szFTM_TestModeOp, "<RESYNC/>"),
      writing("leave tests", szFTM_TestModeOp, "<EXIT_TEST/>"),
      writing("write INI, keep configuration", "unit.ini", "[control]\nreset=0\n[AppSwInfo]\nVersion=7\n"),
      writing("write INI, reset and reboot", "unit.ini", "[control]\nreset=1\nreboot=1\n"),
      writing("write image", "image.hex", std::string(600, 'x')),
      writing("reboot", szFTM_TestModeOp, "<REBOOT/>"),
      writing("reboot into safe boot", szFTM_TestModeOp, "<REBOOT_TO_SAFEBOOT/>"),
      writing("write production data", szFTM_ModemInfo, productionFile("second")),
      reading(szFTM_ModemInfo),
      {"pause", done, pause},
      reading(szFTM_TestModeOp),
      reading(szFTM_TestModeCfg),
      reading(szFTM_Statistics),
      reading(szFTM_Stats4port),
      {"ageing", done, doing<ClientAgeTick>},
      {"shut down", done, shutDown},
  };
}

} // namespace

std::span<const Step> steps() {
  static const auto* const all = new std::vector<Step>(allSteps()); // never destroyed: looked at when the process ends
  return *all;
}

void arrives(std::string_view packet) {
  station.take(packet);
}

std::string lastAnswer() {
  return station.read(szFTM_Progress).text;
}

std::string productionData() {
  std::string text;
  for (const std::string_view column : productionColumns)
    text.append(gateway::theUnit().cell("ProductionData", 0, column).value_or("no cell")).append("|");
  return text;
}

} // namespace session
