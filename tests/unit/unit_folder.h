#pragma once
// Fixture of the tests that work on the folder of a unit, with processes of their own.

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>

#include "simulator/unit.h"

/// One end of a line between two processes.
class ProcessLine {
public:
  explicit ProcessLine(int descriptor) : m_descriptor(descriptor) {}
  ~ProcessLine() {
    if (m_descriptor >= 0)
      close(m_descriptor);
  }
  ProcessLine(ProcessLine&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
  ProcessLine(const ProcessLine&) = delete;
  ProcessLine& operator=(const ProcessLine&) = delete;
  ProcessLine& operator=(ProcessLine&&) = delete;

  void tell(int number) const { EXPECT_EQ(::write(m_descriptor, &number, sizeof number), ssize_t{sizeof number}); }
  /// Waits for what the other one tells; -1 when it has ended.
  int hear() const {
    int number = 0;
    return ::read(m_descriptor, &number, sizeof number) == ssize_t{sizeof number} ? number : -1;
  }

private:
  int m_descriptor;
};

/// A process that works on a unit. To be started while this process has no unit open: a connection must not cross a
/// fork.
class Child {
public:
  Child(pid_t pid, ProcessLine line) : m_pid(pid), m_line(std::move(line)) {}
  ~Child() {
    if (m_pid > 0)
      kill();
  }
  Child(Child&& other) noexcept : m_pid(std::exchange(other.m_pid, -1)), m_line(std::move(other.m_line)) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  Child& operator=(Child&&) = delete;

  const ProcessLine& line() const { return m_line; }

  void kill() {
    ::kill(m_pid, SIGKILL);
    join();
  }

  /// Waits for its end and returns its exit status, -1 when it was killed.
  int join() {
    int status = 0;
    waitpid(std::exchange(m_pid, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

private:
  pid_t m_pid;
  ProcessLine m_line;
};

class UnitFolder : public testing::Test {
protected:
  UnitFolder() {
    // In memory where that can be had: the tests are about processes, not about disks.
    const std::filesystem::path memory = "/dev/shm";
    const auto parent = access(memory.c_str(), W_OK) == 0 ? memory : std::filesystem::temp_directory_path();
    std::string name = (parent / "gateway-test-XXXXXX").string();
    m_folder = mkdtemp(name.data());
  }
  ~UnitFolder() override { std::filesystem::remove_all(m_folder); }

  const std::filesystem::path& folder() const { return m_folder; }

  /// Starts a process whose unit is the one in the folder; `body` returns its exit status.
  Child inChild(const std::function<int(const ProcessLine&)>& body) const {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const pid_t pid = fork();
    if (pid == 0) {
      close(ends[0]);
      gateway::useUnit(gateway::Unit::open(m_folder));
      const int status = body(ProcessLine(ends[1]));
      gateway::useUnit(nullptr);
      _exit(status);
    }
    close(ends[1]);
    return {pid, ProcessLine(ends[0])};
  }

private:
  std::filesystem::path m_folder;
};
