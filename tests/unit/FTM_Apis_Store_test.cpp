#include <gmock/gmock.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "tests/unit/bench_unit.h"
#include "tests/unit/store_calls.h"
#include "tests/unit/virtual_files.h"
#include "userapps/FTM/FTM_Apis.h"
#include "userapps/FTM/FTM_Handles.h"
#include "userapps/FTM/FTM_Store.h"

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

// The snapshots that the store has been given back.
static std::vector<const ST_CFG_TABLE*> released;

int real_freeTable(ST_CFG_TABLE* snapshot) asm("__real_cfg_freeTable");
int wrap_freeTable(ST_CFG_TABLE* snapshot) asm("__wrap_cfg_freeTable");

int wrap_freeTable(ST_CFG_TABLE* snapshot) {
  released.push_back(snapshot);
  storeCalls.emplace_back("free");
  return real_freeTable(snapshot);
}

namespace {

class Store : public BenchUnit {
protected:
  Store() {
    FTM_ClrErrorTFTP();
    storeCalls.clear();
    released.clear();
  }

  /// Runs an operation; standard output and standard error go to `output` and `errors`.
  template <typename Operation>
  auto run(Operation operation) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const auto result = operation();
    output = testing::internal::GetCapturedStdout();
    errors = testing::internal::GetCapturedStderr();
    return result;
  }

  static std::string hybrid() { return unit().cell("XcvrTable", 0, "MultiHybrid").value_or("no cell"); }

  std::string output;
  std::string errors;
};

} // namespace

// Snapshots.

TEST_F(Store, ATableThatCannotBeReadHasNoRowsAndNoCells) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const TableSnapshot none(session.get(), "NoSuchTable");
  EXPECT_FALSE(none.isRead());
  EXPECT_EQ(none.rows(), 0);
  EXPECT_EQ(none.cell(0, 0), nullptr);
}

TEST_F(Store, ATableThatWasReadIsReleasedOnce) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const ST_CFG_TABLE* table = nullptr;
  {
    const TableSnapshot production(session.get(), "ProductionData");
    table = production.get();
    EXPECT_THAT(released, IsEmpty());
  }
  EXPECT_THAT(released, ElementsAre(table));
}

TEST_F(Store, ATableThatWasReadIsReleasedBeforeItsSessionEnds) {
  EXPECT_EQ(run([] {
              char circuit[circuitTextSize];
              return FTM_GetCurrentVpiVci(circuit) != nullptr;
            }),
            true);
  EXPECT_THAT(storeCalls, ElementsAre("session 0", "free", "end"));
  storeCalls.clear();
  EXPECT_EQ(run([] {
              char speed[switchSpeedSize];
              return FtmGetSwitchSpeed(speed);
            }),
            0);
  EXPECT_THAT(storeCalls, ElementsAre("session 0", "free", "end"));
}

TEST_F(Store, ATableThatCannotBeReadIsNotReleased) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  { const TableSnapshot none(session.get(), "NoSuchTable"); }
  EXPECT_THAT(released, IsEmpty());
}

TEST_F(Store, ATableHasNoCellsBeyondItsRowsAndColumns) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const TableSnapshot production(session.get(), "ProductionData");
  ASSERT_EQ(production.rows(), 1);
  const int columns = production.get()->nCols;
  EXPECT_NE(production.cell(0, 0), nullptr);
  EXPECT_NE(production.cell(0, columns - 1), nullptr);
  EXPECT_EQ(production.cell(0, columns), nullptr);
  EXPECT_EQ(production.cell(0, -1), nullptr);
  EXPECT_EQ(production.cell(1, 0), nullptr);
  EXPECT_EQ(production.cell(-1, 0), nullptr);
}

// Test flags.

TEST(TestFlags, EveryTestHasItsBitInTheWord) {
  static_assert(sizeof(U_FTM_TST_FLAGS) == 2);
  using Setter = void (*)(ST_FTM_TST_FLAGS&);
  const std::pair<Setter, std::uint16_t> bits[] = {
      {[](ST_FTM_TST_FLAGS& flags) { flags.bLedTst = 1; }, std::uint16_t{0x8000}},
      {[](ST_FTM_TST_FLAGS& flags) { flags.bRstSwTst = 1; }, std::uint16_t{0x4000}},
      {[](ST_FTM_TST_FLAGS& flags) { flags.bThrPutTst = 1; }, std::uint16_t{0x2000}},
      {[](ST_FTM_TST_FLAGS& flags) { flags.bMulHybTst = 1; }, std::uint16_t{0x1000}},
      {[](ST_FTM_TST_FLAGS& flags) { flags.bAutoPrTst = 1; }, std::uint16_t{0x0800}},
      {[](ST_FTM_TST_FLAGS& flags) { flags.bWirelessTst = 1; }, std::uint16_t{0x0400}},
      {[](ST_FTM_TST_FLAGS& flags) { flags.bVoiceTst = 1; }, std::uint16_t{0x0200}},
  };
  for (const auto& [set, mask] : bits) {
    U_FTM_TST_FLAGS flags{};
    set(flags.stbF);
    EXPECT_EQ(flags.usWd, mask);
  }
}

// Results of the store.

TEST(StoreResults, AreNumberedInTheirOrder) {
  const std::vector<int> results = {CFG_ERR_OK,       CFG_ERR_AGAIN, CFG_ERR_EMPTY,    CFG_ERR_BLOCK,
                                    CFG_ERR_EOF,      CFG_ERR_MEM,   CFG_ERR_COMM,     CFG_ERR_CMD,
                                    CFG_ERR_EXPECTED, CFG_ERR_MSG,   CFG_ERR_INTERNAL, CFG_ERR_TIMEOUT,
                                    CFG_ERR_SIZE,     CFG_ERR_PARMS, CFG_ERR_RANGE,    CFG_ERR_OTHER};
  EXPECT_THAT(results, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
}

// Writing a cell in a session of its own.

TEST_F(Store, CellIsWrittenAndCommitted) {
  EXPECT_EQ(run([] { return FTM_CMwrite_var("XcvrTable", "MultiHybrid", 0, "HYBRID_2"); }), 0);
  EXPECT_EQ(hybrid(), "HYBRID_2");
  EXPECT_EQ(output, "");
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_THAT(storeCalls, ElementsAre("session 1 FTM write", "start", "commit", "end"));
}

TEST_F(Store, CellOfNoTableIsRefusedAtOnce) {
  EXPECT_EQ(run([] { return FTM_CMwrite_var(nullptr, "MultiHybrid", 0, "HYBRID_2"); }), -1);
  EXPECT_EQ(output + errors, "");
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_THAT(storeCalls, IsEmpty());
}

TEST_F(Store, CellIsNotWrittenWithoutASession) {
  unit().setFault("session", true);
  EXPECT_EQ(run([] { return FTM_CMwrite_var("XcvrTable", "MultiHybrid", 0, "HYBRID_2"); }), -1);
  EXPECT_EQ(hybrid(), "AUTO");
  EXPECT_EQ(output + errors, "");
  EXPECT_EQ(recordedMessage(), "");
  EXPECT_THAT(storeCalls, ElementsAre("session 1 FTM write"));
}

TEST_F(Store, UnknownColumnShowsTheIndexThatTheStoreAnswered) {
  EXPECT_EQ(run([] { return FTM_CMwrite_var("XcvrTable", "NoSuchColumn", 0, "HYBRID_2"); }), -1);
  EXPECT_EQ(output, "FTM write failed on table=XcvrTable row=0 col=-1(NoSuchColumn) value='HYBRID_2'\n");
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_THAT(journal("write"), IsEmpty());
}

TEST_F(Store, UnknownTableIsReported) {
  EXPECT_EQ(run([] { return FTM_CMwrite_var("NoSuchTable", "Psd", 3, "%s%n"); }), -1);
  EXPECT_EQ(output, "FTM write failed on table=NoSuchTable row=3 col=-1(Psd) value='%s%n'\n");
  EXPECT_EQ(recordedMessage(), "Write data failed");
}

TEST_F(Store, RefusedCellIsReportedWithItsColumn) {
  unit().setFault("field Psd", true);
  EXPECT_EQ(run([] { return FTM_CMwrite_var("XcvrTable", "Psd", 0, "ON"); }), -1);
  EXPECT_EQ(output, "FTM write failed on table=XcvrTable row=0 col=1(Psd) value='ON'\n");
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_EQ(unit().cell("XcvrTable", 0, "Psd"), "AUTO");
  EXPECT_THAT(storeCalls, ElementsAre("session 1 FTM write", "start", "abort", "end"));
}

TEST_F(Store, FailedCommitFailsTheWriteAndLeavesTheStoreUnchanged) {
  unit().setFault("commit", true);
  EXPECT_EQ(run([] { return FTM_CMwrite_var("XcvrTable", "MultiHybrid", 0, "HYBRID_2"); }), -1);
  EXPECT_EQ(hybrid(), "AUTO");
  EXPECT_THAT(storeCalls, ElementsAre("session 1 FTM write", "start", "commit", "end"));
}

TEST_F(Store, FailedTransactionFailsTheWrite) {
  unit().setFault("transaction", true);
  EXPECT_EQ(run([] { return FTM_CMwrite_var("XcvrTable", "MultiHybrid", 0, "HYBRID_2"); }), -1);
  EXPECT_EQ(hybrid(), "AUTO");
}

// Writing a cell in the caller's session and transaction.

TEST_F(Store, CellOfTheCallersTransactionIsLeftToTheCallersCommit) {
  const StoreSession session(CFG_ROLE_WEB_GUI, "FTM write");
  ASSERT_EQ(cfg_startTransaction(session.get()), 0);
  EXPECT_EQ(run([&] { return ftm_CMwrite_var(session.get(), "XcvrTable", "MultiHybrid", 0, "HYBRID_4"); }), 0);
  EXPECT_EQ(hybrid(), "AUTO");
  EXPECT_EQ(cfg_commitTransaction(session.get()), 0);
  EXPECT_EQ(hybrid(), "HYBRID_4");
}

TEST_F(Store, FailedCellOfTheCallersTransactionIsReportedButNotAborted) {
  const StoreSession session(CFG_ROLE_WEB_GUI, "FTM write");
  ASSERT_EQ(cfg_startTransaction(session.get()), 0);
  EXPECT_EQ(run([&] { return ftm_CMwrite_var(session.get(), "XcvrTable", "MultiHybrid", 0, "HYBRID_4"); }), 0);
  EXPECT_EQ(run([&] { return ftm_CMwrite_var(session.get(), "XcvrTable", "NoSuchColumn", 0, "1"); }), -1);
  EXPECT_EQ(output, "FTM write failed on table=XcvrTable row=0 col=-1(NoSuchColumn) value='1'\n");
  EXPECT_EQ(recordedMessage(), "Write data failed");
  EXPECT_EQ(cfg_commitTransaction(session.get()), 0);
  EXPECT_EQ(hybrid(), "HYBRID_4");
}

TEST_F(Store, CellOfNoTableInTheCallersTransactionIsRefused) {
  const StoreSession session(CFG_ROLE_WEB_GUI, "FTM write");
  ASSERT_EQ(cfg_startTransaction(session.get()), 0);
  EXPECT_EQ(run([&] { return ftm_CMwrite_var(session.get(), nullptr, "Psd", 0, "ON"); }), -1);
  EXPECT_EQ(output, "");
  EXPECT_EQ(recordedMessage(), "");
  cfg_abortTransaction(session.get());
}

// Reading.

TEST_F(Store, SessionThatCanNotBeOpenedIsReportedTwice) {
  unit().setFault("session", true);
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  EXPECT_FALSE(run([&] { return isUsable(session); }));
  EXPECT_EQ(errors, "error: failed to start session\n");
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
}

TEST_F(Store, TableThatCanNotBeReadIsReportedTwice) {
  unit().setFault("table NetDev", true);
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const TableSnapshot devices(session.get(), "NetDev");
  EXPECT_FALSE(run([&] { return isUsable(devices, "NetDev"); }));
  EXPECT_EQ(errors, "error: failed to read table: NetDev\n");
  EXPECT_EQ(devices.rows(), 0);
  EXPECT_EQ(devices.cell(0, 0), nullptr);
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
}

TEST_F(Store, SnapshotHasTheDataRowsBehindItsHeaderRow) {
  unit().clearTable("ProductInterfaces");
  unit().setCell("ProductInterfaces", 1, unit().columns("ProductInterfaces")[2], "eth7");
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const TableSnapshot interfaces(session.get(), "ProductInterfaces");
  ASSERT_TRUE(isUsable(interfaces, "ProductInterfaces"));
  EXPECT_EQ(interfaces.rows(), 2);
  EXPECT_STREQ(interfaces.cell(0, 2), "");
  EXPECT_STREQ(interfaces.cell(1, 2), "eth7");
}

TEST_F(Store, CellOutsideOfTheTableIsNone) {
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  const TableSnapshot types(session.get(), "ProductType");
  ASSERT_TRUE(types.isRead());
  const int columns = types.get()->nCols;
  const std::pair<int, int> places[] = {{-1, 0}, {1, 0}, {0, -1}, {0, columns}, {1'000'000'000, 0}, {0, 2'000'000'000}};
  for (const auto& [row, column] : places)
    EXPECT_EQ(types.cell(row, column), nullptr) << row << " " << column;
}

// Interface names.

namespace {

class Interfaces : public Store {
protected:
  /// Fills the table with rows of nickname and name.
  static void setRows(const std::vector<std::pair<std::string, std::string>>& rows) {
    unit().clearTable("ProductInterfaces");
    const std::vector<std::string> columns = unit().columns("ProductInterfaces");
    for (int row = 0; const auto& [nickname, name] : rows) {
      unit().setCell("ProductInterfaces", row, columns[1], nickname);
      unit().setCell("ProductInterfaces", row, columns[2], name);
      ++row;
    }
  }

  /// The name, or "none".
  std::string nameOf(const char* nickname) {
    const StoreSession session(CFG_ROLE_MODEM, nullptr);
    char name[interfaceNameSize];
    const int result = run([&] { return GetInterfaceName(session.get(), nickname, name); });
    EXPECT_EQ(output, result == 0 ? "" : std::string(nickname) + " Interface Name is not available\n");
    return result == 0 ? name : "none";
  }
};

} // namespace

TEST_F(Interfaces, NicknameGivesTheNameOfItsRow) {
  setRows({{"Ethernet", "eth0"}, {"Omnilane", "eth1"}, {"Wireless", "wl0"}});
  EXPECT_EQ(nameOf("Ethernet"), "eth0");
  EXPECT_EQ(nameOf("Omnilane"), "eth1");
  EXPECT_EQ(nameOf("Wireless"), "wl0");
}

TEST_F(Interfaces, OfARunOfMatchingRowsTheLastWins) {
  setRows({{"B", "b0"}, {"A", "a0"}, {"A", "a1"}, {"A", "a2"}, {"B", "b1"}});
  EXPECT_EQ(nameOf("A"), "a2");
}

TEST_F(Interfaces, SearchStopsAtTheFirstOtherRowAfterAMatch) {
  setRows({{"A", "a0"}, {"B", "b0"}, {"A", "a1"}});
  EXPECT_EQ(nameOf("A"), "a0");
}

TEST_F(Interfaces, UnknownNicknameIsReported) {
  setRows({{"A", "a0"}});
  for (const char* nickname : {"Wireless", "a", "", "%s%n"})
    EXPECT_EQ(nameOf(nickname), "none");
  EXPECT_EQ(recordedMessage(), "");
}

TEST_F(Interfaces, TableWithoutRowsHasNoNames) {
  setRows({});
  EXPECT_EQ(nameOf("Wireless"), "none");
}

TEST_F(Interfaces, UnreadableTableIsReported) {
  unit().setFault("table ProductInterfaces", true);
  EXPECT_EQ(nameOf("Wireless"), "none");
  EXPECT_EQ(errors, "error: failed to read table: ProductInterfaces\n");
  EXPECT_EQ(recordedMessage(), "Fail to Create Xml File");
}

TEST_F(Interfaces, NameIsCutToItsBuffer) {
  setRows({{"A", std::string(400, 'n')}});
  EXPECT_EQ(nameOf("A"), std::string(51, 'n'));
  setRows({{"A", std::string(51, 'm')}});
  EXPECT_EQ(nameOf("A"), std::string(51, 'm'));
}

TEST_F(Interfaces, ResultIsClearedToItsEnd) {
  setRows({{"A", "a0"}});
  const StoreSession session(CFG_ROLE_MODEM, nullptr);
  for (const char* nickname : {"A", "B"}) {
    char name[interfaceNameSize + 1];
    std::memset(name, '#', sizeof name);
    run([&] { return GetInterfaceName(session.get(), nickname, name); });
    EXPECT_THAT(std::vector<char>(name + 2, name + interfaceNameSize), Each('\0')) << nickname;
    EXPECT_EQ(name[interfaceNameSize], '#');
  }
}

TEST_F(Interfaces, EmptyNameIsOne) {
  setRows({{"A", ""}});
  EXPECT_EQ(nameOf("A"), "");
}

// The modem configuration record.

TEST(ConfigurationRecord, StaysZeroButForTheModelThatIsStoredOnAccess) {
  const MODEM_CONFIG_TABLE* record = MCFG_getMCfgPtr();
  EXPECT_EQ(record, MCFG_getMCfgPtr());
  EXPECT_STREQ(record->ModelNum.assigned, "ModelNum");
  EXPECT_EQ(record->modemCfgVer, 0);
  EXPECT_EQ(record->checksum, 0U);
}

TEST(ConfigurationRecord, IsCopiedAsAWhole) {
  MODEM_CONFIG_TABLE* record = MCFG_getMCfgPtr();
  record->checksum = 0xABCD;
  const auto copy = std::make_unique<MODEM_CONFIG_TABLE>();
  EXPECT_EQ(MCFG_cpyMCfg(copy.get()), 0);
  EXPECT_EQ(copy->checksum, 0xABCDU);
  EXPECT_STREQ(copy->ModelNum.assigned, "ModelNum");
  record->checksum = 0;
}

TEST(ConfigurationRecord, IniTextsAreThoseOfTheRecord) {
  MODEM_CONFIG_TABLE* record = MCFG_getMCfgPtr();
  EXPECT_EQ(FileNameINI(), record->factoryTable.aucFileNameINI);
  EXPECT_EQ(VersionINI(), record->factoryTable.aucVersionINI);
  EXPECT_STREQ(FileNameINI(), "");
  EXPECT_STREQ(VersionINI(), "");
}

TEST(ConfigurationRecord, TransceiverTextsAreFixed) {
  EXPECT_STREQ(XCVR_DspSwVersion(), "DspSwVersion");
  EXPECT_STREQ(XCVR_Description(), "XCVR Description");
}

namespace {

struct Field {
  std::size_t offset;
  std::size_t size;
  std::size_t alignment;
};
#define FIELD(record, name)                                                                                            \
  Field {                                                                                                              \
    offsetof(record, name), sizeof(record::name), alignof(decltype(record::name))                                      \
  }

// The fields of the records, in the gateway's order.
const Field factoryFields[] = {FIELD(FACTORY_CONFIG_TABLE, macAddr),        FIELD(FACTORY_CONFIG_TABLE, modelNum),
                               FIELD(FACTORY_CONFIG_TABLE, serialNum),      FIELD(FACTORY_CONFIG_TABLE, wanInterface),
                               FIELD(FACTORY_CONFIG_TABLE, modemMode),      FIELD(FACTORY_CONFIG_TABLE, date),
                               FIELD(FACTORY_CONFIG_TABLE, revision),       FIELD(FACTORY_CONFIG_TABLE, e_164),
                               FIELD(FACTORY_CONFIG_TABLE, aucFileNameINI), FIELD(FACTORY_CONFIG_TABLE, aucVersionINI),
                               FIELD(FACTORY_CONFIG_TABLE, crcChecksum)};
const Field bootFields[] = {FIELD(BOOT_CONFIG_TABLE, softwareVersion), FIELD(BOOT_CONFIG_TABLE, softwareModel),
                            FIELD(BOOT_CONFIG_TABLE, description)};
const Field modelFields[] = {FIELD(M77ModelNumber, assigned), FIELD(M77ModelNumber, overrideFlag)};
const Field modemFields[] = {FIELD(modem_config, modemCfgVer),
                             FIELD(modem_config, factoryTable),
                             FIELD(modem_config, bootCfg),
                             FIELD(modem_config, admin_id),
                             FIELD(modem_config, admin_pw),
                             FIELD(modem_config, MaxPppIdSize),
                             FIELD(modem_config, MaxPppPwSize),
                             FIELD(modem_config, web_id_flag),
                             FIELD(modem_config, web_id),
                             FIELD(modem_config, web_pw),
                             FIELD(modem_config, MaxWebIdSize),
                             FIELD(modem_config, MaxWebPwSize),
                             FIELD(modem_config, wanDName),
                             FIELD(modem_config, if_index),
                             FIELD(modem_config, telnet_port),
                             FIELD(modem_config, maxWanConnects),
                             FIELD(modem_config, enabledProtocols),
                             FIELD(modem_config, enableRFC1577),
                             FIELD(modem_config, enableAtmOamF4),
                             FIELD(modem_config, enableAtmOamF5),
                             FIELD(modem_config, enableAtmLoopback),
                             FIELD(modem_config, enableDNS),
                             FIELD(modem_config, enableHTTP),
                             FIELD(modem_config, enablePPPoA),
                             FIELD(modem_config, enableDHCP),
                             FIELD(modem_config, enableNAT),
                             FIELD(modem_config, enableBcastFilter),
                             FIELD(modem_config, enableMcastFilter),
                             FIELD(modem_config, enableVCtoVCBridge),
                             FIELD(modem_config, enableSpanTree),
                             FIELD(modem_config, enablePortSwitch),
                             FIELD(modem_config, enablePPPoEVCAutoDetect),
                             FIELD(modem_config, enableConnectOnFirstSync),
                             FIELD(modem_config, enableRetryOnFirstSync),
                             FIELD(modem_config, enableAutoUserNameAppend),
                             FIELD(modem_config, enableEthernetWan),
                             FIELD(modem_config, autoDetectPortString),
                             FIELD(modem_config, sarQosPriorityMode),
                             FIELD(modem_config, enableVOIP),
                             FIELD(modem_config, initWelcomeWizard),
                             FIELD(modem_config, initVCWizard),
                             FIELD(modem_config, initDoneWizard),
                             FIELD(modem_config, initWPWizard),
                             FIELD(modem_config, enableUPNP),
                             FIELD(modem_config, disableDevice),
                             FIELD(modem_config, ModelNum),
                             FIELD(modem_config, localWebPort),
                             FIELD(modem_config, enableUpLink),
                             FIELD(modem_config, ppp_failover_enable),
                             FIELD(modem_config, iBtPppAuthTimeoutSec),
                             FIELD(modem_config, iLcpDownCountMax),
                             FIELD(modem_config, remote_access_hidden),
                             FIELD(modem_config, iWebFeatureControl),
                             FIELD(modem_config, checksum)};

/// Whether a record of this size holds these fields in this order, and nothing but them.
testing::AssertionResult areTheFieldsOf(std::size_t size, std::size_t alignment, std::span<const Field> fields) {
  const auto aligned = [](std::size_t offset, std::size_t to) { return (offset + to - 1) / to * to; };
  std::size_t end = 0;
  for (std::size_t index = 0; index < fields.size(); ++index) {
    if (fields[index].offset != aligned(end, fields[index].alignment))
      return testing::AssertionFailure() << "field " << index << " stands at " << fields[index].offset;
    end = fields[index].offset + fields[index].size;
  }
  return aligned(end, alignment) == size ? testing::AssertionSuccess() : testing::AssertionFailure() << "size " << size;
}

} // namespace

TEST(ConfigurationRecord, HasItsFieldsInTheGatewaysOrder) {
  EXPECT_TRUE(areTheFieldsOf(sizeof(FACTORY_CONFIG_TABLE), alignof(FACTORY_CONFIG_TABLE), factoryFields));
  EXPECT_TRUE(areTheFieldsOf(sizeof(BOOT_CONFIG_TABLE), alignof(BOOT_CONFIG_TABLE), bootFields));
  EXPECT_TRUE(areTheFieldsOf(sizeof(M77ModelNumber), alignof(M77ModelNumber), modelFields));
  EXPECT_TRUE(areTheFieldsOf(sizeof(MODEM_CONFIG_TABLE), alignof(MODEM_CONFIG_TABLE), modemFields));
}

TEST(ConfigurationRecord, HasTheLayoutThatTheGatewayDeclares) {
  EXPECT_EQ(sizeof(FACTORY_CONFIG_TABLE::macAddr), 6U);
  EXPECT_EQ(sizeof(FACTORY_CONFIG_TABLE::modelNum), 16U);
  EXPECT_EQ(sizeof(FACTORY_CONFIG_TABLE::serialNum), 16U);
  EXPECT_EQ(sizeof(FACTORY_CONFIG_TABLE::date), 8U);
  EXPECT_EQ(sizeof(FACTORY_CONFIG_TABLE::revision), 2U);
  EXPECT_EQ(sizeof(FACTORY_CONFIG_TABLE::e_164), 32U);
  EXPECT_EQ(sizeof(FACTORY_CONFIG_TABLE::aucFileNameINI), 21U);
  EXPECT_EQ(sizeof(FACTORY_CONFIG_TABLE::aucVersionINI), 21U);
  EXPECT_EQ(sizeof(BOOT_CONFIG_TABLE::softwareVersion), 10U);
  EXPECT_EQ(sizeof(BOOT_CONFIG_TABLE::softwareModel), 10U);
  EXPECT_EQ(sizeof(BOOT_CONFIG_TABLE::description), 10U);
  EXPECT_EQ(offsetof(M77ModelNumber, overrideFlag), 16U);
  EXPECT_EQ(sizeof(modem_config::admin_id), 256U);
  EXPECT_EQ(sizeof(modem_config::admin_pw), 256U);
  EXPECT_EQ(sizeof(modem_config::web_id), 256U);
  EXPECT_EQ(sizeof(modem_config::web_pw), 256U);
  EXPECT_EQ(sizeof(modem_config::wanDName), 255U);
  EXPECT_EQ(sizeof(modem_config::autoDetectPortString), 201U);
  EXPECT_EQ(sizeof(modem_config::iWebFeatureControl), 4 * sizeof(int));
}
