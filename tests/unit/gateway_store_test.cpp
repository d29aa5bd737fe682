#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/cfg_api.h"
#include "simulator/database.h"
#include "simulator/store/tables.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/unit_folder.h"

using gateway::Unit;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A session that ends with its scope.
class StoreSessionOf {
public:
  explicit StoreSessionOf(int role) : m_session(cfg_startSession(role, "test")) {}
  ~StoreSessionOf() { cfg_endSession(m_session); }
  StoreSessionOf(const StoreSessionOf&) = delete;
  StoreSessionOf& operator=(const StoreSessionOf&) = delete;
  operator void*() const { return m_session; }

private:
  void* m_session;
};

using Snapshot = std::unique_ptr<ST_CFG_TABLE, int (*)(ST_CFG_TABLE*)>;

Snapshot read(void* session, const char* table) {
  ST_CFG_TABLE* snapshot = nullptr;
  cl_cfg_getTable(session, table, &snapshot, "test", "read", 1);
  return {snapshot, cfg_freeTable};
}

/// Cells of a row of a snapshot; row -1 is the header row.
std::vector<std::string> row(const ST_CFG_TABLE& table, int number) {
  char** const first = table.aszCells + static_cast<std::ptrdiff_t>(number + 1) * table.nCols;
  return {first, first + table.nCols};
}

int write(void* session, const char* table, int row, const char* column, const char* value) {
  return cfg_setField(session, table, row, cfg_findCol(session, table, column), value);
}

std::vector<std::string> header(void* session, const std::string& table) {
  return row(*read(session, table.c_str()), -1);
}

using Positions = std::map<std::size_t, std::string>;

/// The names that a header has at some positions.
Positions namesAt(const std::vector<std::string>& header, const Positions& positions) {
  Positions names;
  for (const auto& [position, name] : positions)
    names[position] = position < header.size() ? header[position] : "none";
  return names;
}

/// The positions that the store finds for some names.
Positions positionsOf(void* session, const std::string& table, const Positions& names) {
  Positions found;
  for (const auto& [position, name] : names)
    found[static_cast<std::size_t>(cfg_findCol(session, table.c_str(), name.c_str()))] = name;
  return found;
}

/// What staging a cell of a table results in, by role.
std::vector<int> stagingResults(const std::string& table) {
  std::vector<int> results;
  results.reserve(CFG_ROLE_END);
  for (int role = CFG_ROLE_MODEM; role < CFG_ROLE_END; ++role) {
    const StoreSessionOf session(role);
    EXPECT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
    results.push_back(cfg_setField(session, table.c_str(), 0, 0, "x"));
  }
  return results;
}

/// Writes one of the production data in a transaction of its own.
int writeAtOnce(void* session, const char* column, const std::string& value) {
  cfg_startTransaction(session);
  write(session, "ProductionData", 0, column, value.c_str());
  return cfg_commitTransaction(session);
}

class GatewayStore : public BenchUnit {
protected:
  static std::string production(std::string_view column) { return unit().cell("ProductionData", 0, column).value(); }
};

const std::vector<std::string> productionColumns{"ModelNum", "SerialNum", "MacAddr", "Date", "Revision", "E164"};

} // namespace

TEST_F(GatewayStore, HasEveryTableWithItsPositions) {
  const StoreSessionOf session(CFG_ROLE_MODEM);
  const std::map<std::string, Positions> positions{
      {"ProductionData",
       {{0, "ModelNum"}, {1, "SerialNum"}, {2, "MacAddr"}, {3, "Date"}, {4, "Revision"}, {5, "E164"}}},
      {"AppSwInfo", {{2, "Version"}, {4, "ReleaseBuildVersion"}}},
      {"ProductType", {{0, "Description"}}},
      {"ProductInfo", {{0, "IniFileName"}, {1, "IniVersion"}, {2, "SoftwareLoad"}}},
      {"Xcvr", {{0, "State"},           {1, "ActivityDownstream"}, {2, "ActivityUpstream"}, {5, "FecDownstream"},
                {6, "FecUpstream"},     {7, "CrcDownstream"},      {8, "CrcUpstream"},      {9, "HecUpstream"},
                {10, "HecDownstream"},  {12, "AttenDownstream"},   {13, "AttenUpstream"},   {14, "MarginDownstream"},
                {15, "MarginUpstream"}, {16, "SpeedDownstream"},   {17, "SpeedUpstream"},   {18, "PowerDownstream"},
                {19, "PowerUpstream"},  {20, "SignalLoss"},        {34, "Description"},     {35, "Version"}}},
      {"XcvrTable", {{0, "MultiHybrid"}, {1, "Psd"}}},
      {"LedTable", {{0, "Power"}}},
      {"NetDev",
       {{0, "Interface"},
        {1, "RxBytes"},
        {2, "RxPackets"},
        {3, "RxErrs"},
        {4, "RxDrop"},
        {8, "RxMulticast"},
        {9, "TxBytes"},
        {10, "TxPackets"},
        {11, "TxErrs"},
        {12, "TxDrop"},
        {16, "TxCompressed"}}},
      {"BcmAtm", {{2, "Vpi"}, {3, "Vci"}, {4, "InCells"}, {6, "OutCells"}, {27, "InDiscards"}, {28, "OutDiscards"}}},
      {"VccStat", {{0, "Interface"}, {1, "Vpi"}, {2, "Vci"}}},
      {"FlashErr", {{0, "DevType"}, {1, "Write"}, {2, "Erase"}, {3, "CorruptFile"}, {4, "FileCrcError"}}},
      {"SwitchStat", {{0, "Link"}, {1, "Speed"}, {3, "TxPackets"}, {4, "RxPackets"}}},
      {"WlanStations", {{0, "Stations"}}},
      {"WlanConfig", {{0, "Enabled"}}},
      {"ProductInterfaces", {{1, "NickName"}, {2, "Interface"}}},
  };
  EXPECT_EQ(positions.size(), gateway::storeTables().size());
  for (const auto& [table, columns] : positions) {
    EXPECT_EQ(namesAt(header(session, table), columns), columns) << table;
    EXPECT_EQ(positionsOf(session, table, columns), columns) << table;
  }
}

TEST_F(GatewayStore, HeadsItsSnapshotsWithTheNamesOfTheColumns) {
  const StoreSessionOf session(CFG_ROLE_MODEM);
  for (const gateway::StoreTable& table : gateway::storeTables()) {
    EXPECT_EQ(header(session, table.name), unit().columns(table.name));
    EXPECT_GE(read(session, table.name)->nRows, 1) << table.name;
  }
}

TEST_F(GatewayStore, NamesAllColumnsOfATableDifferently) {
  for (const gateway::StoreTable& table : gateway::storeTables()) {
    const std::vector<std::string> columns = unit().columns(table.name);
    EXPECT_EQ(std::set<std::string>(columns.begin(), columns.end()).size(), columns.size()) << table.name;
  }
}

TEST_F(GatewayStore, LeavesTheFactoryWithWhatTheServiceLooksFor) {
  const StoreSessionOf session(CFG_ROLE_MODEM);
  EXPECT_EQ(read(session, "SwitchStat")->nRows, 5);
  const Snapshot interfaces = read(session, "ProductInterfaces");
  std::map<std::string, std::string> byNickName;
  for (int number = 0; number < interfaces->nRows; ++number)
    byNickName[row(*interfaces, number)[1]] = row(*interfaces, number)[2];
  EXPECT_EQ(byNickName["Wireless"], "wl0");
  EXPECT_THAT(byNickName["Omnilane"], testing::StartsWith("eth"));
  std::vector<std::string> devices;
  const Snapshot netDev = read(session, "NetDev");
  devices.reserve(static_cast<std::size_t>(netDev->nRows));
  for (int number = 0; number < netDev->nRows; ++number)
    devices.push_back(row(*netDev, number)[0]);
  EXPECT_THAT(devices, AllOf(Contains("wl0"), Contains(byNickName["Omnilane"]), Contains("nas0")));
  EXPECT_EQ(unit().cell("VccStat", 0, "Interface"), "nas0");
}

TEST_F(GatewayStore, GivesSnapshotsThatKeepTheirCells) {
  const StoreSessionOf session(CFG_ROLE_MODEM);
  const Snapshot before = read(session, "ProductionData");
  unit().setCell("ProductionData", 0, "SerialNum", "4711");
  EXPECT_EQ(row(*before, 0)[1], "1234");
  EXPECT_EQ(row(*read(session, "ProductionData"), 0)[1], "4711");
}

TEST_F(GatewayStore, ReadsNoTableThatIsNone) {
  const StoreSessionOf session(CFG_ROLE_MODEM);
  ST_CFG_TABLE* snapshot = nullptr;
  for (const char* const name : {"", "productiondata", "journal", "sqlite_master", "factory XcvrTable",
                                 "ProductionData\" --", "a'b\"c;d", "ProductionData "})
    EXPECT_EQ(cl_cfg_getTable(session, name, &snapshot, "", "", 0), CFG_ERR_RANGE) << name;
  EXPECT_EQ(snapshot, nullptr);
}

TEST_F(GatewayStore, FindsNoColumnThatIsNone) {
  const StoreSessionOf session(CFG_ROLE_MODEM);
  for (const char* const name : {"", "modelnum", "ModelNum ", "\"ModelNum\"", "rowid", "x\" = '', \"ModelNum"})
    EXPECT_EQ(cfg_findCol(session, "ProductionData", name), -1) << name;
  EXPECT_EQ(cfg_findCol(session, "NoTable", "ModelNum"), -1);
}

TEST_F(GatewayStore, AnswersMissingArgumentsWithAnError) {
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  ST_CFG_TABLE* snapshot = nullptr;
  const std::vector<int> results{
      cl_cfg_getTable(nullptr, "ProductionData", &snapshot, "", "", 0),
      cl_cfg_getTable(session, nullptr, &snapshot, "", "", 0),
      cl_cfg_getTable(session, "ProductionData", nullptr, "", "", 0),
      cfg_endSession(nullptr),
      cfg_freeTable(nullptr),
      cfg_startTransaction(nullptr),
      cfg_commitTransaction(nullptr),
      cfg_abortTransaction(nullptr),
      cfg_resetCfg(nullptr, 0),
      cfg_setListen(nullptr, nullptr),
      cfg_setListen(session, nullptr),
      cfg_listenSubject(nullptr, "a"),
      cfg_listenSubject(session, nullptr),
      cfg_sendMsg(nullptr, "a", "b"),
      cfg_sendMsg(session, nullptr, "b"),
      cfg_sendMsg(session, "a", nullptr),
      cl_cfg_service(nullptr, "", "", 0),
      cfg_setField(nullptr, "ProductionData", 0, 0, "x"),
      cfg_setField(session, nullptr, 0, 0, "x"),
      cfg_setField(session, "ProductionData", 0, 0, nullptr),
  };
  EXPECT_THAT(results, Each(CFG_ERR_PARMS));
  const std::vector<int> columns{
      cfg_findCol(nullptr, "ProductionData", "ModelNum"),
      cfg_findCol(session, nullptr, "ModelNum"),
      cfg_findCol(session, "ProductionData", nullptr),
  };
  EXPECT_THAT(columns, Each(-1));
}

TEST_F(GatewayStore, StartsSessionsInKnownRolesOnly) {
  for (int role = CFG_ROLE_MODEM; role < CFG_ROLE_END; ++role) {
    void* const session = cfg_startSession(role, nullptr);
    EXPECT_NE(session, nullptr) << role;
    EXPECT_EQ(cfg_endSession(session), CFG_ERR_OK);
  }
  EXPECT_EQ(cfg_startSession(-1, "x"), nullptr);
  EXPECT_EQ(cfg_startSession(CFG_ROLE_END, "x"), nullptr);
}

TEST_F(GatewayStore, LetsRolesWriteTheirTablesOnly) {
  constexpr int no = CFG_ERR_CMD;
  constexpr int yes = CFG_ERR_OK;
  // modem, web, LAN and WAN management, command line, factory, factory update, factory update from afar
  const std::vector<int> factory{no, no, no, no, no, yes, yes, yes};
  const std::vector<int> users{no, yes, no, no, yes, yes, yes, yes};
  const std::vector<int> nobody{no, no, no, no, no, no, no, no};
  const std::map<std::string, std::vector<int>> writers{
      {"ProductionData", factory}, {"ProductInfo", factory},
      {"AppSwInfo", factory},      {"ProductType", factory},
      {"XcvrTable", users},        {"LedTable", users},
      {"WlanConfig", users},       {"Xcvr", nobody},
      {"NetDev", nobody},          {"ProductInterfaces", factory},
      {"FlashErr", nobody},        {"SwitchStat", nobody},
      {"BcmAtm", nobody},          {"VccStat", nobody},
      {"WlanStations", nobody},
  };
  EXPECT_EQ(writers.size(), gateway::storeTables().size());
  for (const auto& [table, results] : writers)
    EXPECT_EQ(stagingResults(table), results) << table;
}

TEST_F(GatewayStore, RefusesCellsThatAreNot) {
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  const std::vector<std::pair<int, int>> cells{{0, -1}, {0, 6}, {0, 1'000'000}, {0, -2'000'000'000},
                                               {-1, 0}, {1, 0}, {1'000'000, 0}, {-2'000'000'000, 0}};
  for (const auto& [number, column] : cells)
    EXPECT_EQ(cfg_setField(session, "ProductionData", number, column, "x"), CFG_ERR_RANGE) << number << " " << column;
  EXPECT_EQ(cfg_setField(session, "NoTable", 0, 0, "x"), CFG_ERR_RANGE);
  EXPECT_EQ(cfg_commitTransaction(session), CFG_ERR_OK);
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(GatewayStore, WritesInATransactionOnly) {
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  EXPECT_EQ(cfg_setField(session, "ProductionData", 0, 0, "x"), CFG_ERR_EXPECTED);
  EXPECT_EQ(cfg_commitTransaction(session), CFG_ERR_EXPECTED);
  EXPECT_EQ(cfg_abortTransaction(session), CFG_ERR_EXPECTED);
  EXPECT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  EXPECT_EQ(cfg_startTransaction(session), CFG_ERR_BLOCK);
  EXPECT_EQ(cfg_commitTransaction(session), CFG_ERR_OK);
  EXPECT_EQ(cfg_setField(session, "ProductionData", 0, 0, "x"), CFG_ERR_EXPECTED);
}

TEST_F(GatewayStore, ChangesNothingBeforeTheCommitAndEverythingWithIt) {
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  ASSERT_EQ(write(session, "ProductionData", 0, "ModelNum", "new model"), CFG_ERR_OK);
  ASSERT_EQ(write(session, "ProductionData", 0, "SerialNum", "new serial"), CFG_ERR_OK);
  EXPECT_EQ(production("ModelNum"), "M77-210010-04");
  ASSERT_EQ(cfg_commitTransaction(session), CFG_ERR_OK);
  EXPECT_EQ(production("ModelNum"), "new model");
  EXPECT_EQ(production("SerialNum"), "new serial");
  EXPECT_THAT(journal(),
              ElementsAre("write ProductionData 0 ModelNum=new model", "write ProductionData 0 SerialNum=new serial"));
}

TEST_F(GatewayStore, WritesTheRowThatIsMeant) {
  unit().setCell("LedTable", 2, "Power", "third");
  const StoreSessionOf session(CFG_ROLE_CMDLINE);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  ASSERT_EQ(write(session, "LedTable", 1, "Power", "second"), CFG_ERR_OK);
  ASSERT_EQ(cfg_commitTransaction(session), CFG_ERR_OK);
  EXPECT_EQ(unit().cell("LedTable", 0, "Power"), "");
  EXPECT_EQ(unit().cell("LedTable", 1, "Power"), "second");
  EXPECT_EQ(unit().cell("LedTable", 2, "Power"), "third");
}

TEST_F(GatewayStore, ForgetsWhatWasAborted) {
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  ASSERT_EQ(write(session, "ProductionData", 0, "ModelNum", "dropped"), CFG_ERR_OK);
  ASSERT_EQ(cfg_abortTransaction(session), CFG_ERR_OK);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  ASSERT_EQ(cfg_commitTransaction(session), CFG_ERR_OK);
  EXPECT_EQ(production("ModelNum"), "M77-210010-04");
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(GatewayStore, ForgetsWhatASessionLeavesUncommitted) {
  {
    const StoreSessionOf session(CFG_ROLE_FACTORY);
    ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
    ASSERT_EQ(write(session, "ProductionData", 0, "ModelNum", "dropped"), CFG_ERR_OK);
  }
  EXPECT_EQ(production("ModelNum"), "M77-210010-04");
}

TEST_F(GatewayStore, UndoesACommitThatFailsHalfway) {
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  ASSERT_EQ(write(session, "ProductionData", 0, "ModelNum", "half"), CFG_ERR_OK);
  ASSERT_EQ(write(session, "XcvrTable", 0, "Psd", "ON"), CFG_ERR_OK);
  unit().clearTable("XcvrTable");
  EXPECT_EQ(cfg_commitTransaction(session), CFG_ERR_RANGE);
  EXPECT_EQ(production("ModelNum"), "M77-210010-04");
  EXPECT_THAT(journal(), IsEmpty());
}

TEST_F(GatewayStore, KeepsHostileValuesAsTheyAre) {
  const std::vector<std::string> values{"'; DROP TABLE \"ProductionData\"; --",
                                        "\xFF\xFE\x80",
                                        "a\nb\tc\x01",
                                        "\"?1'%s%n",
                                        "",
                                        std::string(100'000, 'x')};
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  for (const std::string& value : values) {
    EXPECT_EQ(writeAtOnce(session, "E164", value), CFG_ERR_OK);
    EXPECT_EQ(row(*read(session, "ProductionData"), 0)[5], value);
    EXPECT_EQ(journal("write").back(), "ProductionData 0 E164=" + value);
  }
}

TEST_F(GatewayStore, RestoresTheConfigurationAndKeepsProductionDataAndTheBoard) {
  unit().setCell("ProductionData", 0, "SerialNum", "4711");
  unit().setCell("NetDev", 0, "RxBytes", "99");
  unit().setCell("XcvrTable", 0, "Psd", "ON");
  unit().setCell("ProductInterfaces", 7, "NickName", "added");
  unit().clearTable("WlanConfig");
  const StoreSessionOf session(CFG_ROLE_MODEM);
  ASSERT_EQ(cfg_resetCfg(session, 0), CFG_ERR_OK);
  EXPECT_EQ(production("SerialNum"), "4711");
  EXPECT_EQ(unit().cell("NetDev", 0, "RxBytes"), "99");
  EXPECT_EQ(unit().cell("XcvrTable", 0, "Psd"), "AUTO");
  EXPECT_EQ(unit().cell("WlanConfig", 0, "Enabled"), "1");
  EXPECT_EQ(unit().cell("ProductInterfaces", 7, "NickName"), std::nullopt);
  EXPECT_EQ(unit().cell("ProductInterfaces", 2, "Interface"), "wl0");
  EXPECT_THAT(journal(), ElementsAre("reset factory configuration"));
}

TEST_F(GatewayStore, RefusesTheResetToManagementRolesAndToOtherScopes) {
  unit().setCell("XcvrTable", 0, "Psd", "ON");
  for (const int role : {CFG_ROLE_LAN_MGMT, CFG_ROLE_WAN_MGMT})
    EXPECT_NE(cfg_resetCfg(StoreSessionOf(role), 0), CFG_ERR_OK);
  EXPECT_NE(cfg_resetCfg(StoreSessionOf(CFG_ROLE_FACTORY), 1), CFG_ERR_OK);
  EXPECT_EQ(unit().cell("XcvrTable", 0, "Psd"), "ON");
}

TEST_F(GatewayStore, FailsWhereAFaultIsOn) {
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  unit().setFault("session", true);
  EXPECT_EQ(cfg_startSession(CFG_ROLE_MODEM, nullptr), nullptr);
  unit().setFault("table Xcvr", true);
  EXPECT_FALSE(read(session, "Xcvr"));
  EXPECT_TRUE(read(session, "NetDev"));
  unit().setFault("transaction", true);
  EXPECT_NE(cfg_startTransaction(session), CFG_ERR_OK);
  unit().setFault("transaction", false);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  unit().setFault("field SerialNum", true);
  EXPECT_NE(write(session, "ProductionData", 0, "SerialNum", "x"), CFG_ERR_OK);
  EXPECT_EQ(write(session, "ProductionData", 0, "ModelNum", "x"), CFG_ERR_OK);
  unit().setFault("commit", true);
  EXPECT_NE(cfg_commitTransaction(session), CFG_ERR_OK);
  EXPECT_EQ(production("ModelNum"), "M77-210010-04");
  unit().setFault("reset", true);
  EXPECT_NE(cfg_resetCfg(session, 0), CFG_ERR_OK);
  unit().setFault("message", true);
  EXPECT_NE(cfg_sendMsg(session, "a", "b"), CFG_ERR_OK);
  EXPECT_THAT(journal(), IsEmpty());
}

namespace {

std::vector<std::string> received;

void receive(void*, const char* subject, const char* body) {
  received.push_back(std::string(subject) + " " + body);
}

} // namespace

TEST_F(GatewayStore, AnswersTheShutdownOfNonEssentialApplications) {
  received.clear();
  const StoreSessionOf session(CFG_ROLE_MODEM);
  ASSERT_EQ(cfg_setListen(session, receive), CFG_ERR_OK);
  ASSERT_EQ(cfg_listenSubject(session, "MMNESD_DONE"), CFG_ERR_OK);
  ASSERT_EQ(cfg_sendMsg(session, "MMNESD_START", "77"), CFG_ERR_OK);
  EXPECT_THAT(received, IsEmpty());
  ASSERT_EQ(cl_cfg_service(session, "", "", 0), CFG_ERR_OK);
  EXPECT_THAT(received, ElementsAre("MMNESD_DONE 0"));
  ASSERT_EQ(cl_cfg_service(session, "", "", 0), CFG_ERR_OK);
  EXPECT_THAT(received, ElementsAre("MMNESD_DONE 0"));
  EXPECT_THAT(journal(), ElementsAre("message MMNESD_START 77", "message MMNESD_DONE 0"));
}

TEST_F(GatewayStore, DeliversMessagesOfTheSubjectsListenedToFromThenOn) {
  received.clear();
  const StoreSessionOf sender(CFG_ROLE_MODEM);
  ASSERT_EQ(cfg_sendMsg(sender, "news", "too early"), CFG_ERR_OK);
  const StoreSessionOf listener(CFG_ROLE_MODEM);
  ASSERT_EQ(cfg_setListen(listener, receive), CFG_ERR_OK);
  ASSERT_EQ(cfg_listenSubject(listener, "news"), CFG_ERR_OK);
  ASSERT_EQ(cfg_sendMsg(sender, "news", "1"), CFG_ERR_OK);
  ASSERT_EQ(cfg_sendMsg(sender, "weather", "rain"), CFG_ERR_OK);
  ASSERT_EQ(cfg_sendMsg(sender, "news", "2"), CFG_ERR_OK);
  ASSERT_EQ(cl_cfg_service(listener, "", "", 0), CFG_ERR_OK);
  EXPECT_THAT(received, ElementsAre("news 1", "news 2"));
}

// Several processes on one unit.

namespace {

using GatewayStoreOfProcesses = UnitFolder;

/// Sets all production data to one text in a transaction.
int writeProductionData(const std::string& text) {
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  cfg_startTransaction(session);
  for (const std::string& column : productionColumns)
    write(session, "ProductionData", 0, column.c_str(), text.c_str());
  return cfg_commitTransaction(session);
}

/// The one text that all production data hold; fails the test when they differ.
std::string productionData(Unit& unit) {
  std::set<std::string> texts;
  gateway::Query query(unit.database(), "SELECT * FROM \"ProductionData\"");
  EXPECT_TRUE(query.next());
  for (int column = 0; column < query.columns(); ++column)
    texts.emplace(query.text(column));
  EXPECT_EQ(texts.size(), 1U) << testing::PrintToString(texts);
  return *texts.begin();
}

} // namespace

namespace {

/// Commits one number after the other as all production data, and reports each.
int writeNumbersForEver(const ProcessLine& line) {
  const std::string last = gateway::theUnit().cell("ProductionData", 0, "E164").value();
  for (int number = std::atoi(last.c_str()) + 1; writeProductionData(std::to_string(number)) == CFG_ERR_OK; ++number)
    line.tell(number);
  return EXIT_FAILURE;
}

/// All commits up to a reported one are there, and perhaps a later one, each with its rows of the journal.
void expectWholeCommits(Unit& unit, int reported) {
  const std::string found = productionData(unit);
  const int last = std::atoi(found.c_str());
  EXPECT_GE(last, reported);
  const auto writes = unit.journal(0, "write");
  EXPECT_EQ(writes.size(), productionColumns.size() * static_cast<std::size_t>(last));
  EXPECT_EQ(writes.back().text, "ProductionData 0 E164=" + found);
}

} // namespace

TEST_F(GatewayStoreOfProcesses, HoldsProductionDataAsAWholeWhenAWriterIsKilled) {
  constexpr int rounds = 200;
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    Child writer = inChild(writeNumbersForEver);
    int committed = 0;
    for (int report = 0; report <= round % 4; ++report)
      committed = writer.line().hear();
    writer.kill(); // while it is at the next one
    ASSERT_GT(committed, 0);
    expectWholeCommits(*Unit::open(folder()), committed);
  }
}

TEST_F(GatewayStoreOfProcesses, LetsTwoProcessesWriteAndAThirdReadAtOnce) {
  constexpr int commits = 100;
  const std::size_t allWrites = std::size_t{2} * commits * productionColumns.size();
  std::vector<Child> writers;
  for (const std::string name : {"first ", "second "})
    writers.push_back(inChild([name](const ProcessLine& line) {
      line.hear();
      int failures = 0;
      for (int number = 0; number < commits; ++number)
        failures += writeProductionData(name + std::to_string(number)) == CFG_ERR_OK ? 0 : 1;
      return failures;
    }));
  {
    const auto unit = Unit::open(folder());
    for (const std::string& column : productionColumns)
      unit->setCell("ProductionData", 0, column, "start");
    for (const Child& writer : writers)
      writer.line().tell(0);
    while (unit->journal(0, "write").size() < allWrites && !HasFailure())
      productionData(*unit);
  }
  for (Child& writer : writers)
    EXPECT_EQ(writer.join(), 0);
}

TEST_F(GatewayStoreOfProcesses, ShowsAtOnceWhatAnotherProcessHasCommitted) {
  constexpr int rounds = 20;
  const Child other = inChild([](const ProcessLine& line) {
    for (int number = 0; number < rounds; ++number) {
      line.hear();
      writeProductionData(std::to_string(number));
      gateway::theUnit().setFault("ini", number % 2 == 0);
      line.tell(number);
    }
    return EXIT_SUCCESS;
  });
  const auto unit = Unit::open(folder());
  for (int number = 0; number < rounds; ++number) {
    other.line().tell(number);
    ASSERT_EQ(other.line().hear(), number);
    EXPECT_EQ(unit->cell("ProductionData", 0, "MacAddr"), std::to_string(number));
    EXPECT_EQ(unit->hasFault("ini"), number % 2 == 0);
  }
}

TEST_F(GatewayStoreOfProcesses, CarriesMessagesFromOneProcessToAnother) {
  received.clear();
  const Child other = inChild([](const ProcessLine& line) {
    const int number = line.hear();
    line.tell(cfg_sendMsg(StoreSessionOf(CFG_ROLE_MODEM), "news", std::to_string(number).c_str()));
    return EXIT_SUCCESS;
  });
  gateway::useUnit(Unit::open(folder()));
  {
    const StoreSessionOf listener(CFG_ROLE_MODEM);
    cfg_setListen(listener, receive);
    cfg_listenSubject(listener, "news");
    other.line().tell(4711);
    EXPECT_EQ(other.line().hear(), CFG_ERR_OK);
    cl_cfg_service(listener, "", "", 0);
  }
  gateway::useUnit(nullptr);
  EXPECT_THAT(received, ElementsAre("news 4711"));
}

TEST_F(GatewayStoreOfProcesses, MakesAUnitOnceWhenManyOpenItAtOnce) {
  std::vector<Child> openers;
  openers.reserve(8);
  for (int number = 0; number < 8; ++number)
    openers.push_back(inChild([](const ProcessLine&) {
      return gateway::theUnit().cell("ProductionData", 0, "SerialNum") == "1234" ? EXIT_SUCCESS : EXIT_FAILURE;
    }));
  for (Child& opener : openers)
    EXPECT_EQ(opener.join(), EXIT_SUCCESS);
  EXPECT_EQ(Unit::open(folder())->cell("ProductionData", 1, "SerialNum"), std::nullopt);
}

TEST_F(GatewayStoreOfProcesses, KeepsTheStateOfAUnitInItsFolder) {
  { Unit::open(folder())->setCell("ProductionData", 0, "SerialNum", "4711"); }
  EXPECT_EQ(Unit::open(folder())->cell("ProductionData", 0, "SerialNum"), "4711");
}

TEST_F(GatewayStoreOfProcesses, RefusesTheFolderOfAnotherVersion) {
  { Unit::open(folder())->database().runScript("PRAGMA user_version = 99"); }
  EXPECT_THROW(Unit::open(folder()), std::runtime_error);
}

TEST_F(GatewayStoreOfProcesses, RemovesAUnitAndNothingElseOfItsFolder) {
  { Unit::open(folder())->setCell("ProductionData", 0, "SerialNum", "4711"); }
  std::filesystem::create_directories(folder() / "else");
  Unit::remove(folder());
  EXPECT_FALSE(Unit::exists(folder()));
  EXPECT_TRUE(std::filesystem::exists(folder() / "else"));
  EXPECT_EQ(Unit::open(folder())->cell("ProductionData", 0, "SerialNum"), "1234");
}
