#include "wayloom/regions/TGFAPIRequest.hpp"

#include <utility>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/regions/TGFDevice.hpp"
#include "wayloom/regions/TGFLogger.hpp"
#include "wayloom/regions/TGFManager.hpp"

#include "platform/AnswerCache.hpp"
#include "platform/HttpTransfers.hpp"

namespace wayloom {

using platform::Error;
using platform::HttpResponse;
using platform::Json;

TGFAPIRequest::TGFAPIRequest(platform::Platform& platform, std::optional<std::string> token)
    : platform_(platform),
      apiToken_(std::move(token)),
      cache_(std::make_unique<platform::AnswerCache>(platform.files(), "geofold")),
      transfers_(std::make_unique<platform::HttpTransfers>(platform.http(), platform.tasks(), "TGFAPIRequest")) {}

TGFAPIRequest::~TGFAPIRequest() = default;

void TGFAPIRequest::setApiToken(std::optional<std::string> token) {
  const std::lock_guard lock(mutex_);
  apiToken_.swap(token);
}

void TGFAPIRequest::getHandler(const Url& url, Handler handler) {
  transfers_->send(makeRequest("GET", url), [this, url, handler = std::move(handler)](HttpResponse response) {
    processResponseDataErrorUrlHandler(response.body, std::move(response.error), url, handler);
  });
}

TGFAPIRequest::Bytes TGFAPIRequest::postBody(const Url& url, std::string body) {
  auto response = platform::sendSynchronously(platform_.http(), platform_.tasks(), makePost(url, std::move(body)));
  return response.isAnswered() ? Bytes(std::move(response.body)) : std::nullopt;
}

void TGFAPIRequest::postBodyHandler(const Url& url, std::string body, PostHandler handler) {
  transfers_->send(makePost(url, std::move(body)), [handler = std::move(handler)](HttpResponse response) {
    handler(response.isAnswered() ? Bytes(std::move(response.body)) : std::nullopt);
  });
}

platform::HttpRequest TGFAPIRequest::makePost(const Url& url, std::string body) const {
  auto request = makeRequest("POST", url);
  request.headers.emplace_back("Content-Type", "application/json");
  request.headers.emplace_back("Accept", "application/json");
  request.body = std::move(body);
  return request;
}

platform::HttpRequest TGFAPIRequest::makeRequest(std::string method, const Url& url) const {
  platform::HttpRequest request;
  request.method = std::move(method);
  request.url = url.value_or("");
  request.maximumBody = platform_.documentLimits().bytes;
  const std::lock_guard lock(mutex_);
  request.headers = {{"AUTHORIZATION", "Token token=\"" + apiToken_.value_or("") + "\""},
                     {"X-GF-AppID", TGFDevice::getUUID(platform_)},
                     {"X-GF-FrameworkVersion", TGFManager::getVersion()}};
  return request;
}

// The handler comes last and may destroy this object.
void TGFAPIRequest::processResponseDataErrorUrlHandler(const std::string& bytes, std::optional<Error> error,
                                                       const Url& url, const Handler& handler) {
  if (!error && !bytes.empty()) {
    writeToDiskFromURL(bytes, url);
    return handler(std::nullopt, parseResponse(bytes));
  }
  if (!error) error = Error{"Geofold", 204, "No Data"};
  TGFLogger::log(platform_, TGFLogLevel::error, "API Request Failed with Error: %@", *error);
  handler(std::move(error), parseResponse(readFromDisk(url)));
}

std::optional<Json> TGFAPIRequest::parseResponse(std::optional<std::string_view> bytes) {
  if (!bytes) return std::nullopt;
  auto result = platform::parseJson(*bytes, platform_.documentLimits());
  if (result.value && !result.value->is_structured()) {
    result.error = std::string("neither an array nor an object but a ") + result.value->type_name();
    result.value.reset();
  }
  if (!result.value) TGFLogger::log(platform_, TGFLogLevel::error, "API JSON Error:%@", result.error);
  return std::move(result.value);
}

std::optional<std::string> TGFAPIRequest::fileNameFrom(const Url& url) {
  if (!url) return std::nullopt;
  auto name = cache_->fileNameFor(*url);
  if (!name) TGFLogger::log(platform_, TGFLogLevel::error, "No cache file is kept for the URL %@", *url);
  return name;
}

std::optional<std::string> TGFAPIRequest::pathToFileForURL(const Url& url) {
  return fileNameFrom(url) ? cache_->pathFor(*url) : std::nullopt;
}

void TGFAPIRequest::writeToDiskFromURL(std::string_view bytes, const Url& url) {
  if (!fileNameFrom(url)) return;
  if (const auto error = cache_->write(*url, bytes))
    TGFLogger::log(platform_, TGFLogLevel::error, "API Data Write to Cache Failed with Error: %@", *error);
}

TGFAPIRequest::Bytes TGFAPIRequest::readFromDisk(const Url& url) {
  const auto path = pathToFileForURL(url);
  auto bytes = path ? cache_->read(*url) : std::nullopt;
  if (bytes) TGFLogger::log(platform_, TGFLogLevel::info, "API Data Loaded from Cache: %@", *path);
  return bytes;
}

}  // namespace wayloom
