#pragma once
// How the calls of board.h end: as POSIX functions do.

#include <cerrno>
#include <cstdio>
#include <exception>

namespace gateway {

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
