#pragma once
// The calls that the service makes of the board, of the store, of the system and of the heap, one of which fails. Calls
// that the simulated gateway and the test station make are none of the service's and are not counted.

#include <cstddef>
#include <string>
#include <vector>

namespace calls {

/// Everything in this scope is done by the gateway or by the station, whatever the service was at.
class Outside {
public:
  Outside();
  ~Outside();
  Outside(const Outside&) = delete;
  Outside& operator=(const Outside&) = delete;

private:
  bool m_wasInService;
};

/// The service runs in this scope.
class InService {
public:
  InService();
  ~InService();
  InService(const InService&) = delete;
  InService& operator=(const InService&) = delete;

private:
  bool m_wasInService;
};

/// Lets the call of that number, counted from 1, fail; none for 0. The count starts anew.
void letFail(std::size_t number);
/// How many calls there have been.
std::size_t count();
/// The call that has failed, with what it was for ("board_ioctl 4"); empty before that.
const std::string& failed();

} // namespace calls
