#include "tests/fuzz/fuzz.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

void fuzz::require(bool holds, const char* what) {
  if (holds)
    return;
  const std::string line = std::string("does not hold: ") + what + "\n";
  // Not by a stream: those of the service are silent.
  if (write(STDERR_FILENO, line.data(), line.size()) < 0)
    std::_Exit(EXIT_FAILURE);
  std::abort();
}
