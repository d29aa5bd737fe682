#include "simulator/panel/calls.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "simulator/faults.h"
#include "simulator/panel/changes.h"
#include "simulator/panel/journal_page.h"
#include "simulator/panel/line.h"
#include "simulator/store/tables.h"

namespace gateway {

namespace {

constexpr int ok = 200;
constexpr int notFound = 404;
constexpr int unavailable = 503;

constexpr std::string_view tablePrefix = "/api/tables/";

/// Throws std::invalid_argument when it is no number.
std::optional<std::int64_t> numberArgument(const Arguments& arguments, const char* name) {
  const auto found = arguments.find(name);
  if (found == arguments.end())
    return std::nullopt;
  const std::string& text = found->second;
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size())
    throw std::invalid_argument(std::string(name) + " is no number");
  return number;
}

/// Throws std::invalid_argument when the unit can hold no such text.
std::string textArgument(const Arguments& arguments, const char* name) {
  const auto found = arguments.find(name);
  const std::optional<std::string> bytes = bytesOf(found == arguments.end() ? std::string() : found->second);
  if (!bytes)
    throw std::invalid_argument(std::string(name) + " is no text that a unit could hold");
  return *bytes;
}

Reply state(UnitSource& source, const Arguments&) {
  Changes changes(source);
  changes.next();
  return {changes.hasUnit() ? ok : unavailable, changes.whole()};
}

Reply journal(UnitSource& source, const Arguments& arguments) {
  JournalQuestion question{.before = numberArgument(arguments, "before"),
                           .after = numberArgument(arguments, "after"),
                           .kind = textArgument(arguments, "kind"),
                           .text = textArgument(arguments, "text")};
  question.isFromStart = question.after.has_value();
  question.limit = numberArgument(arguments, "limit").value_or(question.limit);
  if (question.limit < 1 || question.limit > longestJournalPage)
    throw std::invalid_argument("limit is a number from 1 to " + std::to_string(longestJournalPage));
  const JournalPage page = source.read([&](Unit& unit, Life&) { return journalPage(unit, question); });
  return {ok, {{"rows", jsonOf(page.rows)}, {"more", page.hasMore}}};
}

Reply tables(UnitSource&, const Arguments&) {
  Json names = Json::array();
  for (const StoreTable& table : storeTables())
    names.push_back(table.name);
  return {ok, std::move(names)};
}

Reply faults(UnitSource&, const Arguments&) {
  Json forms = Json::array();
  for (const FaultForm& fault : faultForms())
    forms.push_back({{"form", fault.form}, {"effect", fault.effect}});
  return {ok, std::move(forms)};
}

Reply line(UnitSource& source, const Arguments&) {
  return {ok, lineOf(source.folder())};
}

Json contentsOf(Unit& unit, const StoreTable& table) {
  Tables& tables = unit.tables();
  Json columns = Json::array();
  for (const std::string& column : tables.columns(table))
    columns.push_back(utf8Of(column));
  Json rows = Json::array();
  for (int row = 0, count = tables.rows(table); row < count; ++row) {
    Json cells = Json::array();
    for (int column = 0; column < static_cast<int>(columns.size()); ++column)
      cells.push_back(utf8Of(tables.cell(table, row, column).value_or("")));
    rows.push_back(std::move(cells));
  }
  return {{"name", table.name}, {"columns", std::move(columns)}, {"rows", std::move(rows)}};
}

Reply table(UnitSource& source, const std::string& name) {
  const StoreTable* const table = findTable(name);
  if (table == nullptr)
    return refusal(notFound, "there is no table " + name);
  return {ok, source.read([&](Unit& unit, Life&) { return contentsOf(unit, *table); })};
}

struct Call {
  std::string_view path;
  Reply (*answer)(UnitSource& source, const Arguments& arguments);
};
constexpr Call calls[] = {{"/api/state", state},
                          {"/api/journal", journal},
                          {"/api/tables", tables},
                          {"/api/faults", faults},
                          {"/api/line", line}};

} // namespace

std::optional<Reply> answerCall(UnitSource& source, const std::string& path, const Arguments& arguments) {
  if (path.starts_with(tablePrefix))
    return table(source, path.substr(tablePrefix.size()));
  const auto* const call = std::ranges::find(calls, path, &Call::path);
  return call == std::end(calls) ? std::nullopt : std::optional(call->answer(source, arguments));
}

Reply refusal(int status, std::string_view why) {
  return {status, {{"error", utf8Of(why)}}};
}

} // namespace gateway
