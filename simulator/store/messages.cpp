// The message side of the configuration store. Messages are rows of the unit, so that they reach other processes.
#include <algorithm>
#include <cstring>

#include "simulator/database.h"
#include "simulator/faults.h"
#include "simulator/journal.h"
#include "simulator/store/session.h"
#include "simulator/unit.h"

using namespace gateway;

namespace {

constexpr std::int64_t keptMessages = 1'000;

/// A message that the rest of the unit answers at once.
struct Answer {
  std::string_view subject;
  const char* answer;
  const char* body;
};

constexpr Answer answers[] = {
    {"MMNESD_START", "MMNESD_DONE", "0"}, // the unit has no non-essential applications to shut down
};

struct Message {
  std::int64_t id;
  std::string subject;
  std::string body;
};

void insert(Unit& unit, std::string_view subject, std::string_view body) {
  execute(unit.database(), "INSERT INTO messages (subject, body) VALUES (?, ?)", subject, body);
  std::string text(subject);
  unit.journalBook().insert("message", text.append(" ").append(body));
}

int send(std::string_view subject, std::string_view body) {
  Unit& unit = theUnit();
  if (unit.faults().has("message"))
    return CFG_ERR_COMM;
  unit.journalBook().flush();
  Transaction transaction(unit.database());
  insert(unit, subject, body);
  for (const Answer& answer : answers)
    if (answer.subject == subject)
      insert(unit, answer.answer, answer.body);
  execute(unit.database(), "DELETE FROM messages WHERE id <= (SELECT max(id) FROM messages) - ?", keptMessages);
  transaction.commit();
  return CFG_ERR_OK;
}

std::int64_t newestMessage() {
  Query query(theUnit().database(), "SELECT max(id) FROM messages");
  query.next();
  return query.number(0);
}

/// The messages that have come since the session last looked.
std::vector<Message> arrived(Session& session) {
  std::vector<Message> messages;
  Query query(theUnit().database(), "SELECT id, subject, body FROM messages WHERE id > ? ORDER BY id",
              session.lastMessage);
  while (query.next())
    messages.push_back({query.number(0), std::string(query.text(1)), std::string(query.text(2))});
  if (!messages.empty())
    session.lastMessage = messages.back().id;
  return messages;
}

bool listensTo(const Session& session, const std::string& subject) {
  return session.listener != nullptr && std::ranges::find(session.subjects, subject) != session.subjects.end();
}

} // namespace

int cfg_setListen(void* session, CFG_LISTENER listener) {
  if (session == nullptr || listener == nullptr)
    return CFG_ERR_PARMS;
  static_cast<Session*>(session)->listener = listener;
  return CFG_ERR_OK;
}

int cfg_listenSubject(void* session, const char* subject) {
  if (session == nullptr || subject == nullptr)
    return CFG_ERR_PARMS;
  return guarded([&] {
    Session& listening = *static_cast<Session*>(session);
    if (listening.subjects.empty())
      listening.lastMessage = newestMessage();
    listening.subjects.emplace_back(subject);
    return CFG_ERR_OK;
  });
}

int cfg_sendMsg(void* session, const char* subject, const char* body) {
  if (session == nullptr || subject == nullptr || body == nullptr)
    return CFG_ERR_PARMS;
  return guarded([&] { return send(subject, body); });
}

int cl_cfg_service(void* session, const char*, const char*, int) {
  if (session == nullptr)
    return CFG_ERR_PARMS;
  return guarded([&] {
    Session& listening = *static_cast<Session*>(session);
    if (listening.subjects.empty())
      return CFG_ERR_OK;
    for (const Message& message : arrived(listening))
      if (listensTo(listening, message.subject))
        listening.listener(session, message.subject.c_str(), message.body.c_str());
    return CFG_ERR_OK;
  });
}
