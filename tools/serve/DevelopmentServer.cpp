#include "tools/serve/DevelopmentServer.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fmt/format.h>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <utility>

#include "wayloom/maps/TWLMapConfigRepo.hpp"
#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/posix/PosixClocks.hpp"
#include "wayloom/posix/PosixFileManager.hpp"

#include "backends/posix/PosixFiles.hpp"
#include "platform/HttpDate.hpp"
#include "tools/replay/RequestJournal.hpp"
#include "tools/serve/ConnectionThreads.hpp"
#include "tools/serve/FaultRules.hpp"
#include "tools/serve/ServerConnection.hpp"

namespace wayloom::tools {
namespace {

using httplib::Request;
using httplib::Response;

constexpr std::size_t kMostConnections = 800;  // at once, fewer than a process may usually have descriptors
constexpr std::size_t kRequestsOfAConnection = 10'000;
constexpr std::size_t kLargestBody = 16U << 20U;  // once unpacked; a document of analytics has a megabyte
constexpr std::size_t kNoiseForEmptyBody = 64;

// What the thread is serving: the library hands its handlers the request alone.
struct Exchange {
  Endpoint endpoint = Endpoint::none;
  Fault fault;
  std::string body;
  bool endsConnection = false;  // what is left of the request is not read
};
thread_local Exchange* current = nullptr;

platform::CalendarTime now() { return posix::PosixCalendarClock().now(); }

std::string contentTypeOf(const std::string& path) {
  const auto extension = std::filesystem::path(path).extension().string();
  for (const auto& [known, type] : {std::pair(".json", "application/json"), std::pair(".svg", "image/svg+xml"),
                                    std::pair(".png", "image/png"), std::pair(".jpg", "image/jpeg")})
    if (extension == known) return type;
  return "application/octet-stream";
}

bool isFromThisMachine(const Request& request) {
  const auto& address = request.remote_addr;
  return address.starts_with("127.") || address == "::1" || address.starts_with("::ffff:127.");
}

// "host:port" as a client wrote it, when it can be part of a URL.
bool isHost(std::string_view text) {
  const auto isGood = [](char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || std::string_view(".-:[]").find(character) < 5;
  };
  return !text.empty() && std::all_of(text.begin(), text.end(), isGood);
}

// The headers that a request of ours has for its server.
platform::HttpHeaders headersOfInterest(const Request& request) {
  platform::HttpHeaders headers;
  for (const auto& [name, value] : request.headers) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    if (lower == "authorization" || lower == "content-type" || lower == "accept" || lower.starts_with("x-"))
      headers.emplace_back(name, value);
  }
  return headers;
}

void answer(Response& response, int status, const std::string& text = {}) {
  response.status = status;
  if (!text.empty()) response.set_content(text + "\n", "text/plain; charset=utf-8");
}

// What of a fault concerns the answer itself, not the way it is sent.
void spoil(Response& response, const Fault& fault) {
  if (fault.status) {
    response.body.clear();
    response.headers.erase("Last-Modified");
    response.headers.erase("Content-Type");
    answer(response, *fault.status, fmt::format("{} as the fault rule wants it", *fault.status));
  }
  if (fault.spoilsBody)
    response.body = randomBytes(response.body.empty() ? kNoiseForEmptyBody : response.body.size(), fault.seed);
}

}  // namespace

class DevelopmentServer::Implementation : public httplib::Server {
 public:
  explicit Implementation(DevelopmentServerOptions options)
      : options_(std::move(options)), endpoints_(options_.venue), faults_(options_.seed) {
    new_task_queue = [] { return new ConnectionThreads(kMostConnections); };
    // The library's own options would let two servers share a port.
    set_socket_options([](socket_t socket) {
      const int yes = 1;
      ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    set_tcp_nodelay(true);
    set_keep_alive_max_count(kRequestsOfAConnection);
    set_payload_max_length(kLargestBody);
    addHandlers();
  }

  ~Implementation() override {
    stop_.signal();
    stop();
    if (thread_.joinable()) thread_.join();
  }

  // An error text, or an empty one.
  std::string start() {
    if (auto error = prepare(); !error.empty()) return error;
    errno = 0;
    port_ = options_.port == 0                              ? bind_to_any_port(options_.address)
            : bind_to_port(options_.address, options_.port) ? options_.port
                                                            : -1;
    if (port_ < 0) {
      const auto reason = errno == 0 ? "no such address" : std::generic_category().message(errno);
      return fmt::format("can't listen on {}, port {}: {}", options_.address, options_.port, reason);
    }
    thread_ = std::thread([this] { listen_after_bind(); });
    while (!is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return {};
  }

  std::string url() const {
    auto host = options_.address == "0.0.0.0" ? "127.0.0.1" : options_.address;
    if (host.find(':') != std::string::npos) host = "[" + host + "]";
    return fmt::format("http://{}:{}", host, port_);
  }
  const VenueEndpoints& endpoints() const { return endpoints_; }
  FaultRules& faults() { return faults_; }

 private:
  using Answer = void (Implementation::*)(const Request&, Response&);

  std::string prepare() {
    std::error_code failure;
    if (!std::filesystem::is_directory(options_.venue + "/server", failure))
      return options_.venue + ": no venue folder, there is no folder \"server\" in it";
    if (auto error = faults_.replace(options_.faults); !error.empty()) return "fault " + error;
    if (options_.keep.empty()) return {};
    std::filesystem::create_directories(options_.keep, failure);
    try {
      analyticsJournal_ = std::make_unique<RequestJournal>(options_.keep + "/analytics.jsonl");
      statusJournal_ = std::make_unique<RequestJournal>(options_.keep + "/status.jsonl");
    } catch (const std::system_error& error) {
      return error.what();
    }
    return {};
  }

  // begin() puts the endpoint's name where the library looks for its patterns.
  void addHandlers() {
    const auto handler = [this](Answer answerer) {
      return [this, answerer](const Request& request, Response& response) { serve(answerer, request, response); };
    };
    Get("/kit", handler(&Implementation::answerKit));
    Get("/maps", handler(&Implementation::answerMap));
    Get("/faults", handler(&Implementation::answerFaults));
    // The library itself would unpack a body of any size.
    const auto bodyHandler = [this](Answer answerer) {
      return [this, answerer](const Request& request, Response& response, const httplib::ContentReader& reader) {
        if (readBody(reader, response)) serve(answerer, request, response);
      };
    };
    Post("/analytics", bodyHandler(&Implementation::receive));
    Post("/status", bodyHandler(&Implementation::receive));
    Put("/faults", bodyHandler(&Implementation::changeFaults));
    const auto unread = [](const Request&, Response& response, const httplib::ContentReader&) {
      current->endsConnection = true;
      response.status = 404;
    };
    Post(".*", unread);
    Put(".*", unread);
    Patch(".*", unread);
    Delete(".*", unread);
    set_error_handler([this](const Request& request, Response& response) { refuse(request, response); });
    set_post_routing_handler([](const Request&, Response& response) {
      if (response.status == 304) response.headers.erase("Content-Length");  // it would have to be the file's
    });
    set_logger([this](const Request& request, const Response& response) { note(request, response); });
  }

  // False when there is an answer instead.
  static bool readBody(const httplib::ContentReader& reader, Response& response) {
    auto& body = current->body;
    bool fits = true;
    const bool isWhole = reader([&](const char* bytes, std::size_t count) {
      fits = count <= kLargestBody - body.size();
      if (fits) body.append(bytes, count);
      return fits;
    });
    if (isWhole && fits) return true;
    current->endsConnection = true;
    response.set_header("Date", platform::httpDate(now()));
    if (fits)
      answer(response, 400, "the body is cut off or malformed");
    else
      answer(response, 413, fmt::format("the body has more than {} bytes", kLargestBody));
    return false;
  }

  bool process_and_close_socket(socket_t socket) override {
    ServerConnection connection(socket, stop_);
    for (auto left = kRequestsOfAConnection; left > 0; --left)
      if (!connection.awaitRequest(std::chrono::seconds(keep_alive_timeout_sec_)) || !serveNext(connection, left == 1))
        break;
    return true;
  }

  // Whether the connection stays.
  bool serveNext(ServerConnection& connection, bool isLast) {
    Exchange exchange;
    current = &exchange;
    bool closes = false;
    const bool isServed =
        process_request(connection, isLast, closes, [&](Request& request) { begin(request, exchange, connection); });
    current = nullptr;
    if (exchange.endsConnection) connection.end();
    return isServed && !closes && !connection.isBroken();
  }

  void begin(Request& request, Exchange& exchange, ServerConnection& connection) {
    exchange.endpoint = endpoints_.find(request.target);
    exchange.fault =
        exchange.endpoint == Endpoint::faults ? Fault() : faults_.draw(nameOf(exchange.endpoint), request.target);
    connection.spoil(exchange.fault);
    request.path = "/" + std::string(nameOf(exchange.endpoint));
  }

  void serve(Answer answerer, const Request& request, Response& response) {
    response.set_header("Date", platform::httpDate(now()));
    response.set_header("Cache-Control", "no-cache");
    (this->*answerer)(request, response);
    spoil(response, current->fault);
  }

  // For what no handler has taken.
  void refuse(const Request& request, Response& response) {
    if (!response.body.empty() || response.has_header("Date")) return;
    response.set_header("Date", platform::httpDate(now()));
    if (response.status == 404) answer(response, 404, "nothing here for a " + request.method);
    spoil(response, current->fault);
  }

  void answerKit(const Request& request, Response& response) {
    answerFile(endpoints_.files().kitFile(), request, response);
    if (!options_.pointsStatusHere || response.status != 200) return;
    const auto host = request.get_header_value("Host");
    response.body = endpoints_.kitWithStatusAt(isHost(host) ? "http://" + host : url(), std::move(response.body));
  }

  void answerMap(const Request& request, Response& response) {
    answerFile(endpoints_.files().mapFileFor(request.target), request, response);
  }

  void answerFile(const std::string& path, const Request& request, Response& response) {
    const auto content = posix::readRegularFile(path, platform::kMaximumHttpBody);
    const auto date = posix::PosixFileManager("/").modificationDate(path);
    if (!content || !date) return answer(response, 404, "no such file in the venue");
    // No server may claim that a file will have changed in the future.
    const auto modified = std::min(*date, now());
    response.set_header("Last-Modified", platform::httpDate(modified));
    if (isKnown(request, std::chrono::floor<std::chrono::seconds>(modified))) return answer(response, 304);
    response.status = 200;
    response.set_content(*content, contentTypeOf(path));
  }

  // RFC 9110, 13.1.3: a date that can't be read and one beside an entity tag don't count.
  static bool isKnown(const Request& request, platform::CalendarTime modified) {
    if (!request.has_header("If-Modified-Since") || request.has_header("If-None-Match")) return false;
    const auto known = TWLMapConfigRepo::dateFrom(request.get_header_value("If-Modified-Since"));
    return known && modified <= *known;
  }

  // Kept before it is answered: what a client has an answer for is on file.
  void receive(const Request& request, Response& response) {
    compose(request, response);
    const auto& fault = current->fault;
    const auto& journal = current->endpoint == Endpoint::analytics ? analyticsJournal_ : statusJournal_;
    const ReceivedRequest received{request.target, headersOfInterest(request), current->body,
                                   fault.status.value_or(response.status), fault.text};
    const int failure = journal ? journal->keep(received) : 0;
    if (failure == 0) return;
    const auto text = "can't be kept: " + std::generic_category().message(failure);
    if (options_.log) options_.log(text);
    answer(response, 500, text);
  }

  void compose(const Request& request, Response& response) const {
    if (!endpoints_.allows(current->endpoint, request.get_header_value("Authorization"))) {
      response.set_header("WWW-Authenticate", "Token realm=\"venue\"");
      return answer(response, 401, "the token is missing or another");
    }
    if (const auto body = platform::parseJson(current->body); !body.value)
      return answer(response, 400, "the body is no JSON: " + body.error);
    answer(response, 200);
  }

  void answerFaults(const Request& request, Response& response) {
    if (!isFromThisMachine(request)) return answer(response, 403, "only from the machine of the server");
    response.set_content(faults_.text(), "text/plain");
  }

  void changeFaults(const Request& request, Response& response) {
    if (!isFromThisMachine(request)) return answerFaults(request, response);
    if (const auto error = faults_.replace(current->body); !error.empty()) return answer(response, 400, error);
    answerFaults(request, response);
  }

  void note(const Request& request, const Response& response) const {
    if (!options_.log) return;
    auto line = fmt::format("{} {} {}, {} bytes in, {} out", request.method, request.target, response.status,
                            current->body.size(), request.method == "HEAD" ? 0 : response.body.size());
    if (!current->fault.text.empty()) line += ", fault: " + current->fault.text;
    if (!endpoints_.allows(current->endpoint, request.get_header_value("Authorization")))
      line += ", without the venue's token";
    options_.log(line);
  }

  const DevelopmentServerOptions options_;
  const VenueEndpoints endpoints_;
  FaultRules faults_;
  std::unique_ptr<RequestJournal> analyticsJournal_;
  std::unique_ptr<RequestJournal> statusJournal_;
  posix::EventDescriptor stop_;
  int port_ = -1;
  std::thread thread_;
};

DevelopmentServer::DevelopmentServer(std::unique_ptr<Implementation> implementation)
    : implementation_(std::move(implementation)) {}

DevelopmentServer::~DevelopmentServer() = default;

std::unique_ptr<DevelopmentServer> DevelopmentServer::start(DevelopmentServerOptions options, std::string& error) {
  auto implementation = std::make_unique<Implementation>(std::move(options));
  error = implementation->start();
  if (!error.empty()) return nullptr;
  return std::unique_ptr<DevelopmentServer>(new DevelopmentServer(std::move(implementation)));
}

std::string DevelopmentServer::url() const { return implementation_->url(); }

const VenueEndpoints& DevelopmentServer::endpoints() const { return implementation_->endpoints(); }

std::string DevelopmentServer::setFaults(std::string_view rules) { return implementation_->faults().replace(rules); }

}  // namespace wayloom::tools
