#include "simulator/scenario/recorder.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>

#include <string>

#include "simulator/whole_file.h"
#include "simulator/wire_recorder.h"
#include "simulator/wire_ring.h"
#include "tests/unit/unit_folder.h"

using gateway::Fate;
using gateway::Recorder;
using gateway::Unit;
using gateway::WireRecorder;
using testing::HasSubstr;
using testing::Not;

namespace {

class GatewayRecorder : public UnitFolder {
protected:
  void pass(WireRecorder& wire, std::uint64_t count) const {
    sockaddr_in station{};
    station.sin_family = AF_INET;
    for (std::uint64_t datagram = 0; datagram < count; ++datagram)
      wire.record(true, station, "noise", 5, Fate::passed);
  }

  std::string recorded(const Recorder& recorder) const {
    const std::filesystem::path file = folder() / "recorded.txt";
    recorder.save(file);
    return gateway::readWholeFile(file);
  }
};

TEST_F(GatewayRecorder, SaysHowManyDatagramsTheRingNoLongerHeld) {
  const auto unit = Unit::open(folder());
  WireRecorder wire(folder());
  Recorder recorder(*unit);
  pass(wire, 1);
  recorder.poll();
  pass(wire, gateway::keptDatagrams + 7);
  recorder.poll();
  EXPECT_THAT(recorded(recorder), HasSubstr("7 datagrams before this came too fast to be recorded"));
}

TEST_F(GatewayRecorder, SaysNothingOfAGapWhereAllWereRecorded) {
  const auto unit = Unit::open(folder());
  WireRecorder wire(folder());
  Recorder recorder(*unit);
  for (int round = 0; round < 3; ++round) {
    pass(wire, gateway::keptDatagrams / 2);
    recorder.poll();
  }
  EXPECT_THAT(recorded(recorder), Not(HasSubstr("too fast")));
}

} // namespace
