#pragma once
// What the calls of board.h share: they end as POSIX functions do, and leave descriptors open until these are closed.

#include <cerrno>
#include <cstdio>
#include <exception>

namespace gateway {

/// How many descriptors of board_open() and board_socket() the process has open.
int openDescriptors();

/// Runs a call that returns 0 or more, or a negative errno; returns 0 or more, or -1 with errno set. A unit that can't
/// be worked on is an input/output error.
template <class Call>
int posixCall(Call call) {
  int result = -EIO;
  try {
    result = call();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "simulator: %s\n", error.what());
  }
  if (result >= 0)
    return result;
  errno = -result;
  return -1;
}

} // namespace gateway
