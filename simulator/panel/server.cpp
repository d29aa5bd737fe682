#include "simulator/panel/server.h"

#include <httplib.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/panel/action.h"
#include "simulator/panel/calls.h"
#include "simulator/panel/origin.h"
#include "simulator/panel/page.h"
#include "simulator/panel/source.h"
#include "simulator/panel/watch.h"

namespace gateway {

namespace {

using namespace std::chrono_literals;
using httplib::Request;
using httplib::Response;
using HandlerResponse = httplib::Server::HandlerResponse;

constexpr std::size_t bodyLimit = std::size_t{64} * 1024;
constexpr std::size_t answeringThreads = 16; // besides one for each connected page
constexpr std::size_t waitingConnections = 128;
constexpr time_t silenceSeconds = 2; // after which a connection that sends nothing is closed
constexpr time_t writeSeconds = 5;   // after which a page that takes nothing is given up
constexpr int connectionBacklog = 128;
constexpr auto feedPause = 500ms;

constexpr const char* eventsPath = "/api/events";
constexpr const char* actionPath = "/api/action";
constexpr const char* jsonType = "application/json";
constexpr std::string_view callPrefix = "/api/";

constexpr int ok = 200;
constexpr int badRequest = 400;
constexpr int forbidden = 403;
constexpr int notFound = 404;
constexpr int wrongMethod = 405;
constexpr int tooLong = 413;
constexpr int wrongType = 415;
constexpr int failed = 500;
constexpr int unavailable = 503;

struct FileType {
  std::string_view ending;
  const char* type;
};
constexpr FileType fileTypes[] = {
    {".html", "text/html; charset=utf-8"},
    {".js", "text/javascript; charset=utf-8"},
    {".css", "text/css; charset=utf-8"},
    {".svg", "image/svg+xml"},
    {".png", "image/png"},
    {".ico", "image/x-icon"},
};

const httplib::Headers headersOfAll{
    {"Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Cache-Control", "no-store"},
    {"Referrer-Policy", "no-referrer"}};

const char* typeOf(std::string_view name) {
  const auto* const found =
      std::ranges::find_if(fileTypes, [&](const FileType& type) { return name.ends_with(type.ending); });
  return found != std::end(fileTypes) ? found->type : "application/octet-stream";
}

void send(Response& response, const Reply& reply) {
  response.status = reply.status;
  response.set_content(reply.json.dump(), jsonType);
}

Reply replyFor(const std::exception_ptr& exception) {
  try {
    std::rethrow_exception(exception);
  } catch (const std::invalid_argument& error) {
    return refusal(badRequest, error.what());
  } catch (const NoUnit& error) {
    return refusal(unavailable, error.what());
  } catch (const std::exception& error) {
    return refusal(failed, error.what());
  }
}

bool isJson(std::string_view type) {
  return type.substr(0, type.find(';')) == jsonType;
}

void sendFile(Response& response, const std::string& name) {
  const auto files = pageFiles();
  const auto found = std::ranges::find(files, std::string_view(name), &PageFile::name);
  if (found == files.end())
    return send(response, refusal(notFound, "there is nothing of this name"));
  response.status = ok;
  response.set_content(found->content.data(), found->content.size(), typeOf(name));
}

/// Sends a page what comes next. Returns whether it is to be told more.
bool sendNext(Feed& feed, httplib::DataSink& sink) {
  const std::optional<EventText> event = feed.next(feedPause);
  if (event)
    return sink.write((*event)->data(), (*event)->size());
  return !feed.isClosed();
}

/// The threads that answer. While many connections wait for one, no other is accepted: each takes a descriptor, and
/// with none left the unit's files couldn't be read.
class AnsweringThreads : public httplib::TaskQueue {
public:
  void enqueue(std::function<void()> answer) override {
    m_places.acquire();
    m_threads.enqueue([this, answer = std::move(answer)] {
      answer();
      m_places.release();
    });
  }
  void shutdown() override { m_threads.shutdown(); }

private:
  static constexpr std::size_t threads = Watch::pageLimit + answeringThreads;

  std::counting_semaphore<> m_places{threads + waitingConnections};
  httplib::ThreadPool m_threads{threads};
};

class PanelServer {
public:
  PanelServer(const std::filesystem::path& unit, PanelAddress address)
      : m_address(std::move(address)), m_source(unit), m_watch(m_source) {
    setLimits();
    setHandlers();
  }

  int serve() {
    if (!bind()) {
      std::printf("The panel can't be served at %s: %s\n", m_address.text().c_str(), std::strerror(errno));
      return EXIT_FAILURE;
    }
    sayWhere();
    return m_server.listen_after_bind() ? EXIT_SUCCESS : EXIT_FAILURE;
  }

private:
  void setLimits() {
    m_server.set_tcp_nodelay(true);
    m_server.set_keep_alive_max_count(1);
    m_server.set_keep_alive_timeout(silenceSeconds);
    m_server.set_read_timeout(silenceSeconds);
    m_server.set_write_timeout(writeSeconds);
    m_server.set_payload_max_length(bodyLimit);
    m_server.new_task_queue = [] { return new AnsweringThreads; };
  }

  void setHandlers() {
    m_server.set_default_headers(headersOfAll);
    // In place of the usual options, by which two processes could listen at one address.
    m_server.set_socket_options([this](int socket) {
      const int isOn = 1;
      setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &isOn, sizeof isOn);
      m_socket = socket;
    });
    m_server.set_exception_handler([](const Request&, Response& response, const std::exception_ptr& exception) {
      send(response, replyFor(exception));
    });
    m_server.set_pre_routing_handler([this](const Request& request, Response& response) {
      return answer(request, response) ? HandlerResponse::Handled : HandlerResponse::Unhandled;
    });
    m_server.Post(actionPath, [this](const Request&, Response& response, const httplib::ContentReader& read) {
      answerAction(response, read);
    });
  }

  bool bind() {
    errno = 0;
    if (m_address.port == 0)
      m_address.port = std::max(m_server.bind_to_any_port(m_address.address), 0);
    else if (!m_server.bind_to_port(m_address.address, m_address.port))
      return false;
    return m_address.port > 0 && listen(m_socket, connectionBacklog) == 0;
  }

  void sayWhere() const {
    std::printf("The panel is at http://%s/\n", m_address.text().c_str());
    if (!isLoopback(m_address.address))
      std::printf("Whoever reaches this address can work the unit, and run on this machine what the unit runs.\n");
    std::fflush(stdout);
  }

  /// Answers all but an action, whose body has to be read first. Returns whether that was it.
  bool answer(const Request& request, Response& response) {
    const char* const why = reasonToRefuse(request);
    if (why != nullptr)
      send(response, refusal(forbidden, why));
    else if (request.method == "GET" || request.method == "HEAD")
      answerRead(request, response);
    else if (request.method != "POST" || request.path != actionPath)
      send(response, refusal(wrongMethod, "nothing is done here this way"));
    else if (!isJson(request.get_header_value("Content-Type")))
      send(response, refusal(wrongType, "an action is application/json"));
    else
      return false;
    return true;
  }

  void answerAction(Response& response, const httplib::ContentReader& read) {
    std::string body;
    const bool isRead = read([&body](const char* bytes, std::size_t size) {
      const bool hasRoom = body.size() + size <= bodyLimit;
      if (hasRoom)
        body.append(bytes, size);
      return hasRoom;
    });
    send(response,
         isRead ? doAction(m_source.folder(), body) : refusal(tooLong, "the action is too long, or broken off"));
  }

  void answerRead(const Request& request, Response& response) {
    if (request.path == eventsPath)
      return sendEvents(response);
    if (!request.path.starts_with(callPrefix))
      return sendFile(response, request.path == "/" ? "index.html" : request.path.substr(1));
    const std::optional<Reply> reply = answerCall(m_source, request.path, request.params);
    send(response, reply ? *reply : refusal(notFound, "there is no such call"));
  }

  /// Null when the request is served.
  const char* reasonToRefuse(const Request& request) const {
    for (const char* const name : {"Host", "Origin", "Sec-Fetch-Site"})
      if (request.get_header_value_count(name) > 1)
        return "a header that says who asks is there more than once";
    const std::string host = request.get_header_value("Host");
    if (!isServedHost(host, m_address.address))
      return "the panel isn't served under this name";
    if (request.path.starts_with(callPrefix) &&
        !isSameOrigin(host, request.get_header_value("Origin"), request.get_header_value("Sec-Fetch-Site")))
      return "only the panel's own page may ask for this";
    // Many parts of one file would be more than that file.
    return request.ranges.empty() ? nullptr : "parts are not served";
  }

  void sendEvents(Response& response) {
    const std::shared_ptr<Feed> feed = m_watch.connect();
    if (feed == nullptr)
      return send(response, refusal(unavailable, "as many pages are connected as may be"));
    response.status = ok;
    response.set_chunked_content_provider(
        "text/event-stream", [feed](std::size_t, httplib::DataSink& sink) { return sendNext(*feed, sink); },
        [this, feed](bool) { m_watch.disconnect(feed); });
  }

  PanelAddress m_address;
  UnitSource m_source;
  Watch m_watch;
  int m_socket = -1;
  httplib::Server m_server;
};

} // namespace

int servePanel(const std::filesystem::path& unit, const PanelAddress& address) {
  return PanelServer(unit, address).serve();
}

} // namespace gateway
