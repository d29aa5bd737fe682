#include "simulator/panel/action.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include "simulator/commands.h"
#include "simulator/database.h"
#include "simulator/existing_unit.h"

namespace gateway {

namespace {

constexpr int ok = 200;
constexpr int badRequest = 400;
constexpr int conflict = 409;
constexpr int unavailable = 503;

/// Throws std::invalid_argument.
std::vector<std::string> wordsOf(const std::string& body) {
  const Json request = Json::parse(body, nullptr, false);
  if (!request.is_object() || !request.contains("words") || !request["words"].is_array())
    throw std::invalid_argument("an action is an object with the list \"words\"");
  std::vector<std::string> words;
  for (const Json& word : request["words"]) {
    std::optional<std::string> bytes = word.is_string() ? bytesOf(word.get_ref<const std::string&>()) : std::nullopt;
    if (!bytes)
      throw std::invalid_argument("each word is a text of characters up to 255");
    words.push_back(std::move(*bytes));
  }
  return words;
}

} // namespace

Reply doAction(const std::filesystem::path& unit, const std::string& body) {
  try {
    const std::vector<std::string> words = wordsOf(body);
    if (!Unit::exists(unit))
      return refusal(unavailable, "there is no unit in " + unit.string());
    // On a connection of its own: one that waits for its turn to write keeps nobody from reading.
    runAction(*existingUnit(unit), words);
    return {ok, Json::object()};
  } catch (const std::invalid_argument& error) {
    return refusal(badRequest, error.what());
  } catch (const DatabaseError& error) {
    return refusal(unavailable, error.what());
  } catch (const std::exception& error) {
    return refusal(conflict, error.what());
  }
}

} // namespace gateway
