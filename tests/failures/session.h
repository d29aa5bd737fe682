#pragma once
// A complete session of a station with the service: every read, every write, and what it is refused.

#include <functional>
#include <span>
#include <string>
#include <string_view>

namespace session {

/// What the station gets.
struct Answer {
  std::string text; ///< that of a refusal, or one of those below
  std::string file; ///< what it is served
};

/// One thing that is asked of the service.
struct Step {
  const char* name;
  std::string_view answer; ///< when it is not refused
  std::function<Answer()> run;
};

/// In the order in which they are asked.
std::span<const Step> steps();

/// A packet of the service reaches the station.
void arrives(std::string_view packet);

/// What the station is answered after all of it, when it asks for the progress file.
std::string lastAnswer();

/// The unit's production data, all columns in one text.
std::string productionData();

// Answers, besides the texts of refusals.

constexpr std::string_view served = "served";   ///< a file
constexpr std::string_view taken = "taken";     ///< a write
constexpr std::string_view done = "done";       ///< what has no answer
constexpr std::string_view unheard = "unheard"; ///< a message that nobody has answered
constexpr std::string_view withoutMessage = "refused without a message";
constexpr std::string_view silence = "silence";

} // namespace session
