#include <gmock/gmock.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "simulator/faults.h"
#include "tests/unit/bench_unit.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

class GatewayFaults : public BenchUnit {
protected:
  static bool isTaken(const std::string& name, bool on) {
    try {
      unit().setFault(name, on);
      return true;
    } catch (const std::runtime_error&) {
      return false;
    }
  }
};

} // namespace

TEST_F(GatewayFaults, AreOnUntilTheyAreSwitchedOff) {
  EXPECT_FALSE(unit().hasFault("session"));
  unit().setFault("session", true);
  unit().setFault("session", true);
  EXPECT_TRUE(unit().hasFault("session"));
  unit().setFault("session", false);
  unit().setFault("session", false);
  EXPECT_FALSE(unit().hasFault("session"));
}

TEST_F(GatewayFaults, AreListedByName) {
  EXPECT_THAT(unit().faults().names(), IsEmpty());
  unit().setFault("table Xcvr", true);
  unit().setFault("request /dev/flshmgmt 39", true);
  unit().setFault("field SerialNum", true);
  EXPECT_THAT(unit().faults().names(), ElementsAre("field SerialNum", "request /dev/flshmgmt 39", "table Xcvr"));
}

TEST_F(GatewayFaults, AreFoundByTheirWords) {
  unit().setFault("table Xcvr", true);
  EXPECT_TRUE(unit().faults().has({"table", "Xcvr"}));
  EXPECT_FALSE(unit().faults().has({"table", "NetDev"}));
  EXPECT_FALSE(unit().faults().has({"table"}));
}

TEST_F(GatewayFaults, HaveAnExampleOfEachForm) {
  const std::map<std::string, std::string> examples{
      {"open PATH", "open /dev/flshmgmt"},
      {"request PATH NUMBER", "request /dev/flshmgmt 39"},
      {"refuse PATH NUMBER", "refuse /dev/bcmadsl0 0x4004d004"},
      {"file PATH", "file /proc/net/dev"},
      {"table NAME", "table Xcvr"},
      {"field COLUMN", "field Psd"},
  };
  for (const gateway::FaultForm& fault : gateway::faultForms()) {
    const auto example = examples.find(fault.form);
    const std::string name = example != examples.end() ? example->second : fault.form;
    EXPECT_TRUE(isTaken(name, true) && unit().hasFault(name)) << name;
  }
}

TEST_F(GatewayFaults, RefuseNamesThatAreNone) {
  std::vector<std::string> taken;
  for (const char* const name :
       {"", " ", "sessions", "session x", "table", "table NoTable", "table Xcvr x", "table  Xcvr", "open /dev/null",
        "open", "request /dev/flshmgmt", "request /dev/flshmgmt x", "request /dev/flshmgmt 0x27",
        "request /dev/null 39", "request socket 39", "file /etc/passwd", "field NoColumn", "commit ",
        "refuse /dev/flshmgmt 7"})
    for (const bool on : {true, false})
      if (isTaken(name, on))
        taken.emplace_back(name);
  EXPECT_THAT(taken, IsEmpty());
  EXPECT_THAT(unit().faults().names(), IsEmpty());
}
