#pragma once
// The actions: everything that somebody can do to a unit. The gateway program, scenarios and whatever else acts on a
// unit share this one grammar. An action is the words of a command of the program, without the program and --unit.

#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace gateway {

class Unit;

/// Does one action on a unit and journals a row "action" with its words, before the rows of what it does. Works from
/// any thread and process. Throws std::runtime_error when it is refused, with nothing changed, and
/// std::invalid_argument when the words are no action.
void runAction(Unit& unit, const std::vector<std::string>& words);

/// Throws std::invalid_argument when the words are no action; nothing is done.
void checkAction(const std::vector<std::string>& words);

/// Adds the actions to a program as its commands. They work on the unit whose folder --unit or the environment names,
/// which is left in `folder`. What the unit's own processes do this way is not journalled as an action.
void addActions(CLI::App& app, std::string& folder);

} // namespace gateway
