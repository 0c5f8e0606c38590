#include "backends/posix/CurlTransfer.hpp"

#include <algorithm>
#include <new>
#include <string_view>
#include <utility>

namespace wayloom::posix {
namespace {

using platform::Duration;
using platform::Error;
using platform::HttpResponse;

constexpr std::size_t kMaximumHeaderBytes = 1U << 20U;
constexpr std::size_t kLargestReservation = 8U << 20U;
constexpr int kMaximumRedirects = 10;
constexpr int kWholeTimeFactor = 10;
constexpr Duration kShortestTimeout = std::chrono::milliseconds(1);
constexpr Duration kLongestTimeout = std::chrono::hours(24);

struct UrlDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using Url = std::unique_ptr<CURLU, UrlDeleter>;

std::string urlPart(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, CURLU_DEFAULT_PORT) != CURLUE_OK) return {};
  std::string copy(text);
  curl_free(text);
  return copy;
}

Error httpError(CURLcode code, std::string description) { return {"HTTP", code, std::move(description)}; }

bool isTokenCharacter(char character) {
  const bool isLetterOrDigit = (character >= '0' && character <= '9') || (character >= 'A' && character <= 'Z') ||
                               (character >= 'a' && character <= 'z');
  return isLetterOrDigit || std::string_view("!#$%&'*+-.^_`|~").find(character) != std::string_view::npos;
}

bool isFieldName(std::string_view name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), isTokenCharacter);
}

bool isFieldValue(std::string_view value) { return value.find_first_of(std::string_view("\r\n\0", 3)) == value.npos; }

std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto begin = std::min(text.find_first_not_of(kBlanks), text.size());
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

}  // namespace

CurlTransfer::CurlTransfer(platform::HttpRequest request, const CurlHttpOptions& options)
    : request_(std::move(request)),
      maximumBody_(std::min(options.maximumBody, request_.maximumBody)),
      timeout_(std::clamp(request_.timeout, kShortestTimeout, kLongestTimeout)),
      refusal_(findOrigin()),
      end_(Clock::now() + timeout_ * kWholeTimeFactor) {
  if (!refusal_) refusal_ = buildHeaders(request_.headers);
}

std::optional<Error> CurlTransfer::findOrigin() {
  if (request_.method != "GET" && request_.method != "HEAD" && request_.method != "POST")
    return httpError(CURLE_BAD_FUNCTION_ARGUMENT, "unknown method " + request_.method);
  const Url url(curl_url());
  const auto isPlain = request_.url.find('\0') == std::string::npos;
  if (!isPlain || !url || curl_url_set(url.get(), CURLUPART_URL, request_.url.c_str(), 0) != CURLUE_OK)
    return httpError(CURLE_URL_MALFORMAT, "not an http or https URL: \"" + request_.url + "\"");
  const auto scheme = urlPart(url.get(), CURLUPART_SCHEME);
  const auto host = urlPart(url.get(), CURLUPART_HOST);
  if ((scheme != "http" && scheme != "https") || host.empty())
    return httpError(CURLE_UNSUPPORTED_PROTOCOL, "not an http or https URL: \"" + request_.url + "\"");
  origin_ = scheme + "://" + host + ":" + urlPart(url.get(), CURLUPART_PORT);
  return std::nullopt;
}

std::optional<Error> CurlTransfer::buildHeaders(const platform::HttpHeaders& given) {
  std::unique_ptr<curl_slist, SlistDeleter> list;
  bool isComplete = true;
  const auto append = [&](const std::string& line) {
    auto* longer = curl_slist_append(list.get(), line.c_str());
    isComplete = isComplete && longer != nullptr;
    if (longer != nullptr && !list) list.reset(longer);
  };
  for (const auto& [name, value] : given) {
    if (!isFieldName(name) || !isFieldValue(value))
      return httpError(CURLE_BAD_FUNCTION_ARGUMENT, "malformed request header");
    // libcurl's forms of a header with a value and of one without.
    append(std::string(name).append(value.empty() ? ";" : ": ").append(value));
  }
  if (request_.method == "POST") {
    if (!platform::findHeader(given, "Expect")) append("Expect:");
    if (!platform::findHeader(given, "Content-Type")) append("Content-Type:");
  }
  if (!isComplete) return httpError(CURLE_OUT_OF_MEMORY, "not enough memory");
  headers_ = std::move(list);
  return std::nullopt;
}

void CurlTransfer::setSink(Sink sink) { sink_ = std::move(sink); }

void CurlTransfer::deliver(HttpResponse response) {
  const std::lock_guard lock(mutex_);
  if (auto sink = std::exchange(sink_, nullptr)) sink(std::move(response));
}

void CurlTransfer::drop() {
  Sink dropped;  // goes after the lock
  const std::lock_guard lock(mutex_);
  dropped = std::exchange(sink_, nullptr);
}

bool CurlTransfer::isExpected() {
  const std::lock_guard lock(mutex_);
  return static_cast<bool>(sink_);
}

bool CurlTransfer::start(CURL* easy, const CurlHttpOptions& options) {
  easy_ = easy;
  lastProgress_ = Clock::now();
  progress_ = 0;
  errorText_[0] = '\0';
  const bool namesEncoding = platform::findHeader(request_.headers, "Accept-Encoding") != nullptr;
  // What needs memory can fail, and would leave the request without it.
  bool isSet = setMethod();
  isSet = isSet && curl_easy_setopt(easy, CURLOPT_URL, request_.url.c_str()) == CURLE_OK;
  isSet = isSet && curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https") == CURLE_OK;
  isSet = isSet && curl_easy_setopt(easy, CURLOPT_USERAGENT, "Wayloom") == CURLE_OK;
  isSet = isSet && (namesEncoding || curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "") == CURLE_OK);
  if (!options.certificateAuthorities.empty())
    isSet = isSet && curl_easy_setopt(easy, CURLOPT_CAINFO, options.certificateAuthorities.c_str()) == CURLE_OK;
  curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(easy, CURLOPT_QUICK_EXIT, 1L);  // closing waits for no name server
  curl_easy_setopt(easy, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);
  curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers_.get());
  curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &CurlTransfer::receiveHeader);
  curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &CurlTransfer::receiveBody);
  curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &CurlTransfer::noteProgress);
  curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(easy, CURLOPT_HEADERDATA, this);
  curl_easy_setopt(easy, CURLOPT_WRITEDATA, this);
  curl_easy_setopt(easy, CURLOPT_XFERINFODATA, this);
  curl_easy_setopt(easy, CURLOPT_PRIVATE, this);
  curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, errorText_.data());
  return isSet;
}

bool CurlTransfer::setMethod() {
  if (request_.method != "POST")
    return curl_easy_setopt(easy_, CURLOPT_NOBODY, request_.method == "HEAD" ? 1L : 0L) == CURLE_OK;
  curl_easy_setopt(easy_, CURLOPT_POST, 1L);
  curl_easy_setopt(easy_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
  return curl_easy_setopt(easy_, CURLOPT_POSTFIELDS, request_.body.data()) == CURLE_OK;
}

std::optional<std::string> CurlTransfer::redirection() const {
  char* target = nullptr;
  if (request_.method != "POST") curl_easy_getinfo(easy_, CURLINFO_REDIRECT_URL, &target);
  return target != nullptr ? std::optional<std::string>(target) : std::nullopt;
}

// Not left to libcurl, which would show the request's own headers, the device's identifier among them, to whatever
// server a redirect names.
std::optional<Error> CurlTransfer::redirect(std::string url) {
  if (++redirects_ > kMaximumRedirects) return httpError(CURLE_TOO_MANY_REDIRECTS, "more than ten redirects");
  const auto previous = origin_;
  request_.url = std::move(url);
  response_ = {};
  if (auto error = findOrigin()) return error;
  if (previous.starts_with("https:") && !origin_.starts_with("https:"))
    return httpError(CURLE_UNSUPPORTED_PROTOCOL, "a redirect from https to http");
  if (origin_ == previous) return std::nullopt;
  request_.headers.clear();
  return buildHeaders({});
}

HttpResponse CurlTransfer::failure(CURLcode code, std::string description) {
  HttpResponse response;
  response.error = httpError(code, std::move(description));
  return response;
}

HttpResponse CurlTransfer::finish(CURLcode outcome) {
  if (!overflow_.empty()) return failure(CURLE_FILESIZE_EXCEEDED, std::move(overflow_));
  if (outcome != CURLE_OK)
    return failure(outcome, errorText_[0] != '\0' ? errorText_.data() : curl_easy_strerror(outcome));
  long status = 0;
  curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &status);
  response_.status = static_cast<int>(status);
  return std::move(response_);
}

std::size_t CurlTransfer::receiveHeader(char* bytes, std::size_t size, std::size_t count, void* self) try {
  return static_cast<CurlTransfer*>(self)->takeHeader({bytes, size * count}) ? size * count : 0;
} catch (const std::bad_alloc&) {
  return 0;
}

std::size_t CurlTransfer::receiveBody(char* bytes, std::size_t size, std::size_t count, void* self) try {
  return static_cast<CurlTransfer*>(self)->takeBody({bytes, size * count}) ? size * count : 0;
} catch (const std::bad_alloc&) {
  return 0;
}

bool CurlTransfer::takeHeader(std::string_view line) {
  lastProgress_ = Clock::now();
  headerBytes_ += line.size();
  if (headerBytes_ > kMaximumHeaderBytes) {
    overflow_ = "the response's headers are too large";
    return false;
  }
  // Each response of a chain of redirects starts anew.
  if (line.starts_with("HTTP/")) response_.headers.clear();
  const auto colon = line.find(':');
  if (colon == line.npos || line.starts_with("HTTP/")) return true;
  response_.headers.emplace_back(withoutBlanks(line.substr(0, colon)), withoutBlanks(line.substr(colon + 1)));
  return true;
}

bool CurlTransfer::takeBody(std::string_view bytes) {
  auto& body = response_.body;
  curl_off_t announced = 0;
  if (body.empty()) curl_easy_getinfo(easy_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
  const auto expected = static_cast<std::size_t>(std::max<curl_off_t>(announced, 0));
  if (expected > maximumBody_ || bytes.size() > maximumBody_ - body.size()) {
    overflow_ = "the response is larger than " + std::to_string(maximumBody_) + " bytes";
    return false;
  }
  if (expected > 0) body.reserve(std::min(expected, kLargestReservation));
  body.append(bytes);
  return true;
}

int CurlTransfer::noteProgress(void* self, curl_off_t, curl_off_t received, curl_off_t, curl_off_t sent) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  if (received + sent == transfer.progress_) return 0;
  transfer.progress_ = received + sent;
  transfer.lastProgress_ = Clock::now();
  return 0;
}

}  // namespace wayloom::posix
