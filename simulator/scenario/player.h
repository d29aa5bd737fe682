#pragma once
// Plays a scenario on a unit, as its handler and its test station.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/scenario/network.h"
#include "simulator/scenario/scenario.h"
#include "simulator/scenario/tftp_client.h"

namespace gateway {

class Unit;

class Player {
public:
  /// `say` gets a line of text for each step when it begins.
  using Say = std::function<void(const std::string& text)>;

  /// `isInterrupted` is asked again and again while something is waited for; once it says so, the play has failed.
  Player(
      Unit& unit, Network& network, Say say, std::function<bool()> isInterrupted = [] { return false; });

  /// Plays the steps one after the other, up to the first that fails. Returns why that one did, with the number of its
  /// line; nothing when all went well. What was to be taken back after a while is taken back in either case.
  std::optional<std::string> play(const Scenario& scenario);

private:
  using Time = Network::Time;
  struct Undo {
    Time time;
    int line;
    std::vector<std::string> words;
  };

  /// The network as transfers and waits have it: what is due in between is done.
  class Waiting : public Network {
  public:
    explicit Waiting(Player& player) : m_player(player) {}
    Time now() override { return m_player.m_network.now(); }
    void openPort() override { m_player.m_network.openPort(); }
    void send(Port port, std::string_view bytes) override { m_player.m_network.send(port, bytes); }
    std::optional<Received> receive(Time limit) override;

  private:
    Player& m_player;
  };

  /// Thrown when the play has failed and nothing is to be waited for any more.
  struct Stopped {};

  void playInTime(const Step& step);
  void stopAfterFailure();
  std::optional<std::string> playStep(const Step& step);
  std::optional<std::string> act(const Step& step);
  std::optional<std::string> expectRefusal(const Step& step);
  std::optional<std::string> transfer(const Step& step);
  std::optional<std::string> awaitCondition(const Step& step);
  /// What is there instead of what the condition wants; nothing when it holds.
  std::optional<std::string> difference(const Condition& condition);
  bool hasRow(const std::string& kind, const std::string& text);
  Time startOf(const Step& step) const;
  std::int64_t lastRow();
  void takeBackWhatIsDue();
  void waitForTheRest();
  void takeBackTheRest();
  void sayStep(int line, const std::string& text);

  Unit& m_unit;
  Network& m_network;
  Say m_say;
  std::function<bool()> m_isInterrupted;
  Waiting m_waiting;
  TftpClient m_client;
  Time m_start{0};
  Time m_stepEnd{0};
  std::int64_t m_rowBefore = 0; ///< last row of the journal before the last action or transfer
  bool m_hasActed = false;
  std::vector<Undo> m_undos; ///< in the order of their times
  std::optional<std::string> m_failure;
};

} // namespace gateway
