// The simulated line and its circuit, as the driver's callers, the store's readers and the init scripts see them.
#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/adsldrv.h"
#include "platform/board.h"
#include "platform/cfg_api.h"
#include "simulator/circuit.h"
#include "simulator/drivers/line.h"
#include "simulator/unit.h"
#include "tests/unit/bench_unit.h"
#include "tests/unit/device_lines.h"
#include "userapps/FTM/FTM_Apis.h"

using gateway::LineState;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Row = std::vector<std::string>;

/// All rows of a store table, from its first column to the given one.
std::vector<Row> rowsOf(gateway::Unit& unit, const std::string& table, std::size_t columns) {
  const std::vector<std::string> names = unit.columns(table);
  std::vector<Row> rows;
  for (int row = 0; unit.cell(table, row, names[0]); ++row) {
    rows.emplace_back();
    for (std::size_t column = 0; column < columns; ++column)
      rows.back().push_back(*unit.cell(table, row, names[column]));
  }
  return rows;
}

std::string atmCircuit(gateway::Unit& unit) {
  return *unit.cell("BcmAtm", 0, "Vpi") + "." + *unit.cell("BcmAtm", 0, "Vci");
}

class Adsl : public BenchUnit {
protected:
  Adsl() : m_descriptor(board_open(adslDevice, O_RDWR)) {}
  ~Adsl() override { board_close(m_descriptor); }

  /// Result of a request; -errno when it failed. The status goes in and out through `status`.
  int request(unsigned long number) { return board_ioctl(m_descriptor, number, &status) < 0 ? -errno : 0; }

  static LineState line() { return gateway::lineState(unit().database()); }
  /// Moves the clock, which is in the test's hands: nobody sleeps.
  static void wait(std::int64_t ms) { board_usleep(static_cast<useconds_t>(ms * 1000)); }

  /// State of the transceiver as a session of the store reads it.
  static std::string storedState() {
    void* session = cfg_startSession(CFG_ROLE_MODEM, nullptr);
    ST_CFG_TABLE* table = nullptr;
    const int result = cl_cfg_getTable(session, "Xcvr", &table, __FILE__, __func__, __LINE__);
    std::string state = "unreadable";
    if (result == CFG_ERR_OK) {
      state = table->aszCells[table->nCols];
      cfg_freeTable(table);
    }
    cfg_endSession(session);
    return state;
  }

  const int m_descriptor;
  std::int32_t status = 0;
};

TEST_F(Adsl, LineIsUpAtFirst) {
  EXPECT_EQ(line(), LineState::up);
  EXPECT_EQ(storedState(), "UP");
}

TEST_F(Adsl, StopTakesTheLineDownForGood) {
  EXPECT_EQ(request(ADSLIOCTL_CONNECTION_STOP), 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(line(), LineState::down);
  wait(10 * gateway::lineTrainingMs);
  EXPECT_EQ(line(), LineState::down);
}

TEST_F(Adsl, StartTrainsTheLineForAWhileUntilItComesUp) {
  request(ADSLIOCTL_CONNECTION_STOP);
  wait(1000);
  EXPECT_EQ(request(ADSLIOCTL_CONNECTION_START), 0);
  EXPECT_EQ(line(), LineState::training);
  wait(gateway::lineTrainingMs - 1);
  EXPECT_EQ(line(), LineState::training);
  wait(1);
  EXPECT_EQ(line(), LineState::up);
}

TEST_F(Adsl, StartLeavesALineThatTrainsOrIsUpAlone) {
  request(ADSLIOCTL_CONNECTION_START);
  EXPECT_EQ(line(), LineState::up);
  request(ADSLIOCTL_CONNECTION_STOP);
  request(ADSLIOCTL_CONNECTION_START);
  wait(gateway::lineTrainingMs - 1);
  request(ADSLIOCTL_CONNECTION_START);
  wait(1);
  EXPECT_EQ(line(), LineState::up);
}

TEST_F(Adsl, StoreFollowsTheLine) {
  request(ADSLIOCTL_CONNECTION_STOP);
  EXPECT_EQ(storedState(), "DOWN");
  EXPECT_EQ(unit().cell("Xcvr", 0, "SpeedDownstream"), "0");
  request(ADSLIOCTL_CONNECTION_START);
  EXPECT_EQ(storedState(), "TRAIN");
  wait(gateway::lineTrainingMs);
  EXPECT_EQ(storedState(), "UP"); // although nobody has asked the driver since
  EXPECT_EQ(unit().cell("Xcvr", 0, "SpeedDownstream"), unit().cell("Xcvr", 0, "MaxSpeedDownstream"));
}

TEST_F(Adsl, CellsThatAreSetStayWhileTheLineStaysAsItIs) {
  unit().setCell("Xcvr", 0, "SpeedDownstream", "1");
  EXPECT_EQ(line(), LineState::up);
  EXPECT_EQ(unit().cell("Xcvr", 0, "SpeedDownstream"), "1");
}

TEST_F(Adsl, TrainingThatAnEarlierClockStartedIsOver) {
  wait(1000);
  gateway::setLineState(unit().database(), LineState::training);
  gateway::clock::useManual(); // as after a restart of the machine
  EXPECT_EQ(line(), LineState::up);
}

TEST_F(Adsl, AFaultMakesTheDriverRefuseARequestInItsStatus) {
  unit().setFault(adslRefusal(ADSLIOCTL_CONNECTION_STOP), true);
  EXPECT_EQ(request(ADSLIOCTL_CONNECTION_STOP), 0);
  EXPECT_NE(status, 0);
  EXPECT_EQ(line(), LineState::up);
  unit().setFault(adslRefusal(ADSLIOCTL_CONNECTION_STOP), false);
  status = 0;
  EXPECT_EQ(request(ADSLIOCTL_CONNECTION_STOP), 0);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(line(), LineState::down);
}

TEST_F(Adsl, AStatusThatIsAlreadyThereIsLeftAlone) {
  status = 3;
  EXPECT_EQ(request(ADSLIOCTL_CONNECTION_START), 0);
  EXPECT_EQ(status, 3);
}

TEST_F(Adsl, OnlyTheAdslDriverRefusesByStatus) {
  EXPECT_THROW(unit().setFault("refuse /dev/gpioctrl 5", true), std::runtime_error);
  EXPECT_THROW(unit().setFault("refuse /dev/bcmadsl0 abc", true), std::runtime_error);
}

TEST_F(Adsl, UnknownRequestsAndMissingRecordsAreRefused) {
  EXPECT_EQ(request(7), -ENOTTY);
  EXPECT_LT(board_ioctl(m_descriptor, ADSLIOCTL_CONNECTION_STOP, nullptr), 0);
  EXPECT_EQ(errno, EFAULT);
  EXPECT_EQ(line(), LineState::up);
}

TEST_F(Adsl, ThereIsOneLine) {
  EXPECT_LT(board_open("/dev/bcmadsl1", O_RDWR), 0);
  EXPECT_EQ(errno, ENOENT);
}

// The circuit.

class Circuit : public BenchUnit {};

TEST_F(Circuit, NewOneTakesThePlaceOfTheDataInterfacesCircuit) {
  EXPECT_TRUE(gateway::newCircuit(unit(), "1.8.36", "02:aa:bb:cc:dd:ee"));
  EXPECT_THAT(rowsOf(unit(), "VccStat", 4), ElementsAre(Row{"nas0", "8", "36", "02:aa:bb:cc:dd:ee"}));
  EXPECT_EQ(atmCircuit(unit()), "8.36");
  EXPECT_THAT(journal(), ElementsAre("circuit new 1.8.36 02:aa:bb:cc:dd:ee"));
}

TEST_F(Circuit, NewOneLeavesOtherInterfacesAlone) {
  unit().setCell("VccStat", 1, "Interface", "nas1");
  EXPECT_TRUE(gateway::newCircuit(unit(), "1.255.65535", ""));
  EXPECT_THAT(rowsOf(unit(), "VccStat", 3), ElementsAre(Row{"nas1", "", ""}, Row{"nas0", "255", "65535"}));
}

TEST_F(Circuit, DeletedOneIsGone) {
  EXPECT_TRUE(gateway::deleteCircuit(unit(), "1.0.35"));
  EXPECT_THAT(rowsOf(unit(), "VccStat", 3), IsEmpty());
  EXPECT_EQ(atmCircuit(unit()), "0.0");
  EXPECT_THAT(journal(), ElementsAre("circuit deleted 1.0.35"));
}

TEST_F(Circuit, OneThatDoesNotExistIsNotDeleted) {
  EXPECT_FALSE(gateway::deleteCircuit(unit(), "1.0.36"));
  EXPECT_EQ(atmCircuit(unit()), "0.35");
  EXPECT_THAT(journal(), ElementsAre("circuit refused 1.0.36"));
}

TEST_F(Circuit, TextThatNamesNoneChangesNothing) {
  for (const char* text : {"", "1", "1.", "1.8", "1.8.", "1..36", "2.8.36", "1.256.36", "1.8.65536", "1.-1.36",
                           "1.8.36 ", " 1.8.36", "1.8.36.1", "1.8a.36", "1.8.$(reboot)", "1.0x8.36",
                           "1.99999999999999999999.36", "1.8'; DROP TABLE \"VccStat\"; --.36"}) {
    EXPECT_FALSE(gateway::newCircuit(unit(), text, "02:aa:bb:cc:dd:ee")) << text;
    EXPECT_FALSE(gateway::deleteCircuit(unit(), text)) << text;
  }
  EXPECT_THAT(rowsOf(unit(), "VccStat", 3), ElementsAre(Row{"nas0", "0", "35"}));
  EXPECT_EQ(atmCircuit(unit()), "0.35");
}

// The init scripts, run as the service runs them on a unit that other programs work on too.

class Scripts : public testing::Test {
protected:
  Scripts() : m_folder((std::filesystem::temp_directory_path() / "unit-XXXXXX").string()) {
    mkdtemp(m_folder.data());
    m_previous = gateway::useUnit(gateway::Unit::open(m_folder));
    setenv("GATEWAY_UNIT", m_folder.c_str(), 1);
  }
  ~Scripts() override {
    unsetenv("GATEWAY_UNIT");
    gateway::useUnit(std::move(m_previous));
    std::filesystem::remove_all(m_folder);
  }

  static gateway::Unit& unit() { return gateway::theUnit(); }

  /// Exit status of a command.
  static int run(const std::string& command) {
    const int status = board_system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  static std::vector<std::string> circuitRows() {
    std::vector<std::string> rows;
    for (const auto& row : unit().journal(0, "circuit"))
      rows.push_back(row.text);
    return rows;
  }

private:
  std::string m_folder;
  std::unique_ptr<gateway::Unit> m_previous;
};

TEST_F(Scripts, MoveTheCircuit) {
  EXPECT_EQ(run("/etc/init.d/DelOrgVpiVci.sh 1.0.35"), 0);
  EXPECT_THAT(rowsOf(unit(), "VccStat", 3), IsEmpty());
  EXPECT_EQ(run("/etc/init.d/NewVpiVci.sh 1.8.36 02:aa:bb:cc:dd:ee"), 0);
  EXPECT_THAT(rowsOf(unit(), "VccStat", 4), ElementsAre(Row{"nas0", "8", "36", "02:aa:bb:cc:dd:ee"}));
  EXPECT_EQ(atmCircuit(unit()), "8.36");
  EXPECT_THAT(circuitRows(), ElementsAre("deleted 1.0.35", "new 1.8.36 02:aa:bb:cc:dd:ee"));
}

TEST_F(Scripts, MoveTheCircuitForTheService) {
  EXPECT_EQ(ftm_ChangeVpiVci("8", "36"), 0);
  EXPECT_THAT(rowsOf(unit(), "VccStat", 3), ElementsAre(Row{"nas0", "8", "36"}));
  EXPECT_EQ(ftm_ChangeVpiVci("8", "no number"), 0); // what the scripts return is not looked at
  EXPECT_THAT(rowsOf(unit(), "VccStat", 3), IsEmpty());
}

TEST_F(Scripts, RefuseWhateverNamesNoCircuitAndRunNoneOfIt) {
  const std::vector<std::string> arguments = {"",       "\"\"",          "1.8.36x",        "'1.8.36; touch ran'",
                                              "--help", "-- 1.8.36x",    "'$(touch ran)'", "'`touch ran`.1'",
                                              "'*'",    "'1.8.36\n1.8'", "\"'\"",          "'1.8.\"36\"' '\"'"};
  for (const std::string& argument : arguments) {
    EXPECT_NE(run("cd " + unit().gatewayPath("/").string() + " && \"$GATEWAY_TOOLS\"/etc/init.d/NewVpiVci.sh " +
                  argument + " 2>/dev/null"),
              0)
        << argument;
    EXPECT_NE(run("cd " + unit().gatewayPath("/").string() + " && \"$GATEWAY_TOOLS\"/etc/init.d/DelOrgVpiVci.sh " +
                  argument + " 2>/dev/null"),
              0)
        << argument;
  }
  EXPECT_FALSE(std::filesystem::exists(unit().gatewayPath("/ran")));
  EXPECT_THAT(rowsOf(unit(), "VccStat", 3), ElementsAre(Row{"nas0", "0", "35"}));
  EXPECT_EQ(circuitRows().size(), 2 * arguments.size());
}

TEST_F(Scripts, KeepAnyAddressAsItIs) {
  EXPECT_EQ(run("/etc/init.d/NewVpiVci.sh 1.8.36 '$(touch ran); \"'"), 0);
  EXPECT_THAT(rowsOf(unit(), "VccStat", 4), ElementsAre(Row{"nas0", "8", "36", "$(touch ran); \""}));
}

TEST_F(Scripts, TakeNoAddressForAnEmptyOne) {
  EXPECT_EQ(run("/etc/init.d/NewVpiVci.sh 1.8.36"), 0);
  EXPECT_THAT(rowsOf(unit(), "VccStat", 4), ElementsAre(Row{"nas0", "8", "36", ""}));
}

} // namespace
