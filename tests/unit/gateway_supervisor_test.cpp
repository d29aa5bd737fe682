#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/unit/unit_folder.h"

using gateway::Unit;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int patienceMs = 60'000;

/// `gateway up` with a service that behaves as it is told. All of its processes write to one line of output.
class Supervisor {
public:
  Supervisor(const std::filesystem::path& folder, const char* behaviour, std::vector<std::string> options = {},
             const char* service = SUPERVISED_SERVICE) {
    std::vector<std::string> words{GATEWAY_PROGRAM, "up",        "--no-panel", "--unit",
                                   folder.string(), "--service", service};
    words.insert(words.end(), options.begin(), options.end());
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
      arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int ends[2];
    EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0);
    m_pid = fork();
    if (m_pid == 0) {
      setenv("SUPERVISED_SERVICE", behaviour, 1);
      dup2(ends[1], STDOUT_FILENO);
      dup2(ends[1], STDERR_FILENO);
      execv(GATEWAY_PROGRAM, arguments.data());
      _exit(EXIT_FAILURE);
    }
    close(ends[1]);
    m_output = ends[0];
  }
  ~Supervisor() {
    end(SIGKILL);
    close(m_output);
  }
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  /// The next line of output; "closed" once no process is left that could write one.
  std::string line() {
    for (;;) {
      if (const std::size_t end = m_text.find('\n'); end != std::string::npos) {
        std::string line = m_text.substr(0, end);
        m_text.erase(0, end + 1);
        return line;
      }
      pollfd readable{.fd = m_output, .events = POLLIN, .revents = 0};
      char bytes[512];
      if (poll(&readable, 1, patienceMs) != 1)
        return "nothing";
      const ssize_t size = read(m_output, bytes, sizeof bytes);
      if (size <= 0)
        return "closed";
      m_text.append(bytes, static_cast<std::size_t>(size));
    }
  }

  /// Reads up to a line that holds a text; returns that line, or the last one.
  std::string lineWith(const std::string& text) {
    std::string found = line();
    while (found.find(text) == std::string::npos && found != "closed" && found != "nothing")
      found = line();
    return found;
  }

  /// Sends a signal and returns the exit status, -1 when it was killed.
  int end(int signal) {
    if (m_pid <= 0)
      return -1;
    kill(m_pid, signal);
    return join();
  }

  int join() {
    int status = 0;
    waitpid(std::exchange(m_pid, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

private:
  pid_t m_pid = -1;
  int m_output = -1;
  std::string m_text;
};

class GatewaySupervisor : public UnitFolder {
protected:
  std::vector<std::string> journal(std::string_view kind) const {
    std::vector<std::string> texts;
    for (const gateway::JournalRow& row : Unit::open(folder())->journal(0, kind))
      texts.push_back(row.text);
    return texts;
  }

  std::string content(const char* file) const {
    std::ifstream stream(folder() / file);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  static int command(const std::string& text) {
    const int status = std::system((GATEWAY_PROGRAM " " + text + " > /dev/null 2>&1").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

} // namespace

TEST_F(GatewaySupervisor, SaysWhereTheStateIsAndWhenTheServiceIsReady) {
  Supervisor supervisor(folder(), "waits");
  EXPECT_EQ(supervisor.line(), "The unit keeps its state in " + folder().string());
  EXPECT_EQ(supervisor.line(), "bound"); // the service's own output, line by line
  EXPECT_EQ(supervisor.line(), "ready");
  EXPECT_EQ(command("wait ready --timeout 60 --unit " + folder().string()), 0);
  EXPECT_THAT(journal("boot"), ElementsAre("normal"));
}

TEST_F(GatewaySupervisor, EndsEverythingWhenItIsToldTo) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    Supervisor supervisor(folder(), "has a child");
    EXPECT_EQ(supervisor.lineWith("ready"), "ready");
    EXPECT_EQ(command("wait row command sleep --timeout 60 --unit " + folder().string()), 0);
    EXPECT_EQ(supervisor.end(signal), EXIT_SUCCESS);
    EXPECT_EQ(supervisor.line(), "closed"); // the service's child included
  }
}

TEST_F(GatewaySupervisor, TakesTheServiceAlongWhenItIsKilled) {
  Supervisor supervisor(folder(), "waits");
  EXPECT_EQ(supervisor.lineWith("ready"), "ready");
  EXPECT_EQ(supervisor.end(SIGKILL), -1);
  EXPECT_EQ(supervisor.line(), "closed");
}

TEST_F(GatewaySupervisor, GivesUpOnAServiceThatWasNeverReady) {
  Supervisor supervisor(folder(), "never ready");
  EXPECT_EQ(supervisor.lineWith("ended"), "The service ended with status 3 before it was ready");
  EXPECT_EQ(supervisor.line(), "closed");
  EXPECT_EQ(supervisor.join(), EXIT_FAILURE);
}

TEST_F(GatewaySupervisor, GivesUpOnAServiceThatCannotBeRun) {
  Supervisor supervisor(folder(), "waits", {}, "/no/such/program");
  EXPECT_EQ(supervisor.lineWith("can't"), "/no/such/program can't be run");
  EXPECT_THAT(supervisor.line(), HasSubstr("before it was ready"));
  EXPECT_EQ(supervisor.join(), EXIT_FAILURE);
}

TEST_F(GatewaySupervisor, StartsTheServiceAgainAfterAReboot) {
  Supervisor supervisor(folder(), "safe boot once");
  EXPECT_EQ(supervisor.lineWith("reboots"), "The unit reboots");
  EXPECT_EQ(supervisor.lineWith("ready"), "ready");
  EXPECT_EQ(supervisor.end(SIGTERM), EXIT_SUCCESS);
  EXPECT_THAT(journal("reboot"), ElementsAre("safe boot"));
  EXPECT_THAT(journal("boot"), ElementsAre("normal", "safe boot"));
  Supervisor next(folder(), "waits");
  EXPECT_EQ(next.lineWith("ready"), "ready");
  EXPECT_THAT(journal("boot"), ElementsAre("normal", "safe boot", "normal")); // once only
}

TEST_F(GatewaySupervisor, StartsAServiceAgainThatEndsLater) {
  Supervisor supervisor(folder(), "ends once");
  EXPECT_EQ(supervisor.lineWith("ended"), "The service ended with status 4 and is started again");
  EXPECT_EQ(supervisor.lineWith("ready"), "ready");
  EXPECT_EQ(journal("boot").size(), 2U);
}

TEST_F(GatewaySupervisor, JournalsHowTheServiceEnded) {
  Supervisor rebooted(folder(), "safe boot once");
  EXPECT_EQ(rebooted.lineWith("reboots"), "The unit reboots");
  EXPECT_EQ(rebooted.lineWith("ready"), "ready");
  EXPECT_EQ(command("kill --unit " + folder().string()), 0);
  EXPECT_EQ(rebooted.lineWith("again"), "The service was ended by signal 9 and is started again");
  EXPECT_EQ(rebooted.lineWith("ready"), "ready");
  EXPECT_EQ(command("reboot --unit " + folder().string()), 0);
  EXPECT_EQ(rebooted.lineWith("reboots"), "The unit reboots");
  EXPECT_EQ(rebooted.lineWith("ready"), "ready");
  EXPECT_EQ(rebooted.end(SIGINT), EXIT_SUCCESS);
  EXPECT_THAT(journal("end"), ElementsAre("reboot", "signal 9", "reboot", "signal 15"));
  EXPECT_NE(command("wait ready --timeout 0 --unit " + folder().string()), 0);
  Supervisor failing(folder(), "never ready");
  EXPECT_EQ(failing.join(), EXIT_FAILURE);
  EXPECT_EQ(journal("end").back(), "status 3");
}

TEST_F(GatewaySupervisor, KeepsWhatTheServicePrints) {
  {
    Supervisor supervisor(folder(), "waits");
    EXPECT_EQ(supervisor.lineWith("ready"), "ready");
    supervisor.end(SIGINT);
  }
  const std::string start = "The unit keeps its state in " + folder().string() + "\nbound\nready\n";
  EXPECT_EQ(content("output.log"), start);
  {
    Supervisor supervisor(folder(), "waits");
    EXPECT_EQ(supervisor.lineWith("ready"), "ready");
    supervisor.end(SIGINT);
  }
  EXPECT_EQ(content("output.log"), start + start);
  Supervisor supervisor(folder(), "waits", {"--fresh"});
  EXPECT_EQ(supervisor.lineWith("ready"), "ready");
  supervisor.end(SIGINT);
  EXPECT_EQ(content("output.log"), start);
}

// Nobody reads what the supervisor prints meanwhile.
TEST_F(GatewaySupervisor, KeepsOnlyTheNewestOutputAndWaitsForNobody) {
  Supervisor supervisor(folder(), "prints");
  EXPECT_EQ(command("wait row log printed --timeout 100 --unit " + folder().string()), 0);
  supervisor.end(SIGINT);
  EXPECT_THAT(content("output.log") + content("output.log.1"), HasSubstr("printed line 69999\n"));
  EXPECT_LE(std::filesystem::file_size(folder() / "output.log"), std::size_t{1} << 20);
  EXPECT_LE(std::filesystem::file_size(folder() / "output.log.1"), std::size_t{1} << 20);
  EXPECT_THAT(content("output.log.1"), Not(HasSubstr("printed line 0\n")));
}

TEST_F(GatewaySupervisor, KeepsAnotherOneOffTheUnit) {
  Supervisor supervisor(folder(), "waits");
  EXPECT_EQ(supervisor.lineWith("ready"), "ready");
  Supervisor another(folder(), "waits", {"--fresh"});
  EXPECT_THAT(another.line(), HasSubstr("runs already"));
  EXPECT_EQ(another.join(), EXIT_FAILURE);
  EXPECT_THAT(journal("boot"), ElementsAre("normal"));
}

TEST_F(GatewaySupervisor, StartsFromFactoryStateWhenItIsToldTo) {
  { Unit::open(folder())->setCell("ProductionData", 0, "SerialNum", "4711"); }
  {
    Supervisor supervisor(folder(), "waits");
    EXPECT_EQ(supervisor.lineWith("ready"), "ready");
    EXPECT_EQ(Unit::open(folder())->cell("ProductionData", 0, "SerialNum"), "4711");
  }
  Supervisor supervisor(folder(), "waits", {"--fresh"});
  EXPECT_EQ(supervisor.lineWith("ready"), "ready");
  EXPECT_EQ(Unit::open(folder())->cell("ProductionData", 0, "SerialNum"), "1234");
}

// The other commands.

TEST_F(GatewaySupervisor, ChangesTheStateOfAUnitFromTheCommandLine) {
  Unit::open(folder());
  const std::string unit = " --unit " + folder().string();
  EXPECT_EQ(command("set ProductionData SerialNum 4711" + unit), 0);
  EXPECT_EQ(command("set LedTable Power on --row 1" + unit), 0);
  EXPECT_EQ(command("fault on table Xcvr" + unit), 0);
  const auto opened = Unit::open(folder());
  EXPECT_EQ(opened->cell("ProductionData", 0, "SerialNum"), "4711");
  EXPECT_EQ(opened->cell("LedTable", 1, "Power"), "on");
  EXPECT_TRUE(opened->hasFault("table Xcvr"));
  EXPECT_THAT(journal("write"), ElementsAre("ProductionData 0 SerialNum=4711", "LedTable 1 Power=on"));
}

TEST_F(GatewaySupervisor, RefusesCommandsThatCannotBe) {
  const std::string unit = " --unit " + folder().string();
  EXPECT_NE(command("journal" + unit), 0); // no unit there yet
  Unit::open(folder());
  EXPECT_EQ(command("journal" + unit), 0);
  for (const char* const text :
       {"set NoTable X 1", "set ProductionData NoColumn 1", "set ProductionData SerialNum 1 --row -1", "table NoTable",
        "fault on nothing", "nothing", "wait row boot --timeout 0"})
    EXPECT_NE(command(text + unit), 0) << text;
}
