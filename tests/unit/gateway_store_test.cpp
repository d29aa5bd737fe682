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

class GatewayStore : public BenchUnit {
protected:
  static std::string production(std::string_view column) { return unit().cell("ProductionData", 0, column).value(); }
};

const std::vector<std::string> productionColumns{"ModelNum", "SerialNum", "MacAddr", "Date", "Revision", "E164"};

} // namespace

TEST_F(GatewayStore, HasEveryTableWithItsPositions) {
  const StoreSessionOf session(CFG_ROLE_MODEM);
  const std::map<std::string, std::map<std::size_t, std::string>> positions{
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
    const Snapshot snapshot = read(session, table.c_str());
    ASSERT_TRUE(snapshot) << table;
    EXPECT_GE(snapshot->nRows, 1) << table;
    const std::vector<std::string> header = row(*snapshot, -1);
    EXPECT_EQ(header, unit().columns(table));
    for (const auto& [position, name] : columns) {
      ASSERT_LT(position, header.size()) << table;
      EXPECT_EQ(header[position], name) << table;
      EXPECT_EQ(cfg_findCol(session, table.c_str(), name.c_str()), static_cast<int>(position)) << table;
    }
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
  ST_CFG_TABLE* snapshot = nullptr;
  EXPECT_NE(cl_cfg_getTable(nullptr, "ProductionData", &snapshot, "", "", 0), CFG_ERR_OK);
  EXPECT_NE(cl_cfg_getTable(session, nullptr, &snapshot, "", "", 0), CFG_ERR_OK);
  EXPECT_NE(cl_cfg_getTable(session, "ProductionData", nullptr, "", "", 0), CFG_ERR_OK);
  EXPECT_NE(cfg_endSession(nullptr), CFG_ERR_OK);
  EXPECT_NE(cfg_freeTable(nullptr), CFG_ERR_OK);
  EXPECT_NE(cfg_startTransaction(nullptr), CFG_ERR_OK);
  EXPECT_NE(cfg_commitTransaction(nullptr), CFG_ERR_OK);
  EXPECT_NE(cfg_abortTransaction(nullptr), CFG_ERR_OK);
  EXPECT_NE(cfg_resetCfg(nullptr, 0), CFG_ERR_OK);
  EXPECT_NE(cfg_setListen(nullptr, nullptr), CFG_ERR_OK);
  EXPECT_NE(cfg_setListen(session, nullptr), CFG_ERR_OK);
  EXPECT_NE(cfg_listenSubject(nullptr, "a"), CFG_ERR_OK);
  EXPECT_NE(cfg_listenSubject(session, nullptr), CFG_ERR_OK);
  EXPECT_NE(cfg_sendMsg(nullptr, "a", "b"), CFG_ERR_OK);
  EXPECT_NE(cfg_sendMsg(session, nullptr, "b"), CFG_ERR_OK);
  EXPECT_NE(cfg_sendMsg(session, "a", nullptr), CFG_ERR_OK);
  EXPECT_NE(cl_cfg_service(nullptr, "", "", 0), CFG_ERR_OK);
  EXPECT_EQ(cfg_findCol(nullptr, "ProductionData", "ModelNum"), -1);
  EXPECT_EQ(cfg_findCol(session, nullptr, "ModelNum"), -1);
  EXPECT_EQ(cfg_findCol(session, "ProductionData", nullptr), -1);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  EXPECT_NE(cfg_setField(nullptr, "ProductionData", 0, 0, "x"), CFG_ERR_OK);
  EXPECT_NE(cfg_setField(session, nullptr, 0, 0, "x"), CFG_ERR_OK);
  EXPECT_NE(cfg_setField(session, "ProductionData", 0, 0, nullptr), CFG_ERR_OK);
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
  const std::set<int> factory{CFG_ROLE_FACTORY, CFG_ROLE_FACTORY_UPDATE, CFG_ROLE_FACTORY_TR069_UPDATE};
  std::set<int> users = factory;
  users.insert({CFG_ROLE_WEB_GUI, CFG_ROLE_CMDLINE});
  const std::map<std::string, std::set<int>> writers{
      {"ProductionData", factory},
      {"ProductInfo", factory},
      {"AppSwInfo", factory},
      {"ProductType", factory},
      {"XcvrTable", users},
      {"LedTable", users},
      {"WlanConfig", users},
      {"Xcvr", {}},
      {"NetDev", {}},
      {"ProductInterfaces", factory},
      {"FlashErr", {}},
      {"SwitchStat", {}},
      {"BcmAtm", {}},
      {"VccStat", {}},
      {"WlanStations", {}},
  };
  EXPECT_EQ(writers.size(), gateway::storeTables().size());
  for (const auto& [table, roles] : writers)
    for (int role = CFG_ROLE_MODEM; role < CFG_ROLE_END; ++role) {
      const StoreSessionOf session(role);
      ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
      const int expected = roles.contains(role) ? CFG_ERR_OK : CFG_ERR_CMD;
      EXPECT_EQ(cfg_setField(session, table.c_str(), 0, 0, "x"), expected) << table << " by role " << role;
    }
}

TEST_F(GatewayStore, RefusesCellsThatAreNot) {
  const StoreSessionOf session(CFG_ROLE_FACTORY);
  ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
  for (const int column : {-1, 6, 1'000'000, -2'000'000'000})
    EXPECT_EQ(cfg_setField(session, "ProductionData", 0, column, "x"), CFG_ERR_RANGE) << column;
  for (const int number : {-1, 1, 1'000'000, -2'000'000'000})
    EXPECT_EQ(cfg_setField(session, "ProductionData", number, 0, "x"), CFG_ERR_RANGE) << number;
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
  const std::string longValue(100'000, 'x');
  for (const std::string& value : {std::string("'; DROP TABLE \"ProductionData\"; --"), std::string("\xFF\xFE\x80"),
                                   std::string("a\nb\tc\x01"), std::string("\"?1'%s%n"), std::string(), longValue}) {
    const StoreSessionOf session(CFG_ROLE_FACTORY);
    ASSERT_EQ(cfg_startTransaction(session), CFG_ERR_OK);
    ASSERT_EQ(write(session, "ProductionData", 0, "E164", value.c_str()), CFG_ERR_OK);
    ASSERT_EQ(cfg_commitTransaction(session), CFG_ERR_OK);
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

TEST_F(GatewayStoreOfProcesses, HoldsProductionDataAsAWholeWhenAWriterIsKilled) {
  constexpr int rounds = 200;
  for (int round = 0; round < rounds && !HasFailure(); ++round) {
    Child writer = inChild([](const ProcessLine& line) {
      const int start = std::atoi(gateway::theUnit().cell("ProductionData", 0, "E164").value().c_str());
      for (int number = start + 1; writeProductionData(std::to_string(number)) == CFG_ERR_OK; ++number)
        line.tell(number);
      return EXIT_FAILURE;
    });
    int committed = 0;
    for (int report = 0; report <= round % 4; ++report)
      committed = writer.line().hear();
    writer.kill(); // while it is at the next one
    EXPECT_GT(committed, 0);
    const auto unit = Unit::open(folder());
    const std::string found = productionData(*unit);
    EXPECT_GE(std::atoi(found.c_str()), committed);
    const auto writes = unit->journal(0, "write");
    EXPECT_EQ(writes.size(), productionColumns.size() * static_cast<std::size_t>(std::atoi(found.c_str())));
    EXPECT_EQ(writes.back().text, "ProductionData 0 E164=" + found);
  }
}

TEST_F(GatewayStoreOfProcesses, LetsTwoProcessesWriteAndAThirdReadAtOnce) {
  constexpr int commits = 100;
  const std::size_t allWrites = 2 * commits * productionColumns.size();
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
