#include "wayloom/status/TPLAPIRequest.hpp"

#include <utility>

#include "wayloom/platform/JsonParser.hpp"
#include "wayloom/platform/Platform.hpp"
#include "wayloom/status/TPLDevice.hpp"
#include "wayloom/status/TPLStatusManager.hpp"

#include "platform/AnswerCache.hpp"
#include "platform/HttpTransfers.hpp"

namespace wayloom {

using platform::Error;
using platform::HttpRequest;
using platform::HttpResponse;
using platform::Json;

namespace {

// Of a post, whose answer is delivery enough.
std::optional<Error> failureOf(HttpResponse response) {
  return response.isAnswered() ? std::nullopt : std::move(response.error);
}

}  // namespace

TPLAPIRequest::TPLAPIRequest(platform::Platform& platform, std::optional<std::string> token)
    : platform_(platform),
      apiToken_(std::move(token)),
      cache_(std::make_unique<platform::AnswerCache>(platform.files(), "pulsekeep")),
      transfers_(std::make_unique<platform::HttpTransfers>(platform.http(), platform.tasks(), "TPLAPIRequest")) {}

TPLAPIRequest::~TPLAPIRequest() = default;

HttpRequest TPLAPIRequest::newApiRequest(const Url& url) const {
  HttpRequest request;
  request.url = url.value_or("");
  request.maximumBody = platform_.documentLimits().bytes;
  request.headers = {{"AUTHORIZATION", "Token token=\"" + apiToken_.value_or("") + "\""},
                     {"X-PL-AppID", TPLDevice::getUUID(platform_)},
                     {"X-PL-FrameworkVersion", TPLStatusManager::getVersion()}};
  return request;
}

HttpRequest TPLAPIRequest::newPostRequest(const Url& url) const {
  auto request = newApiRequest(url);
  request.method = "POST";
  request.headers.emplace_back("Content-Type", "application/json");
  request.headers.emplace_back("Accept", "application/json");
  return request;
}

std::optional<Error> TPLAPIRequest::postSyncBody(const Url& url, std::string json) {
  auto request = newPostRequest(url);
  request.body = std::move(json);
  return failureOf(platform::sendSynchronously(platform_.http(), platform_.tasks(), std::move(request)));
}

std::unique_ptr<platform::HttpTask> TPLAPIRequest::startPost(const Url& url, std::string json,
                                                             platform::TaskQueue& queue, PostHandler handler) {
  auto request = newPostRequest(url);
  request.body = std::move(json);
  return platform_.http().send(std::move(request), queue, [handler = std::move(handler)](HttpResponse response) {
    handler(failureOf(std::move(response)));
  });
}

void TPLAPIRequest::getHandler(const Url& url, Handler handler) {
  sendTwice(newApiRequest(url), url, std::move(handler));
}

void TPLAPIRequest::postBodyHandler(const Url& url, std::string json, Handler handler) {
  auto request = newPostRequest(url);
  request.body = std::move(json);
  sendTwice(request, url, std::move(handler));
}

void TPLAPIRequest::sendTwice(const HttpRequest& request, const Url& url, Handler handler) {
  transfers_->send(request, [](const HttpResponse&) {});
  transfers_->send(request, [this, url, handler = std::move(handler)](HttpResponse response) {
    processResponseDataErrorUrlHandler(response.body, std::move(response.error), url, handler);
  });
}

// The handler comes last and may destroy this object.
void TPLAPIRequest::processResponseDataErrorUrlHandler(const std::string& bytes, std::optional<Error> error,
                                                       const Url& url, const Handler& handler) {
  if (!error && !bytes.empty()) {
    writeToDiskFromURL(bytes, url);
    return handler(std::nullopt, parseResponse(bytes));
  }
  if (!error) error = Error{"Pulsekeep", 204, "No Data"};
  handler(std::move(error), parseResponse(readFromDisk(url)));
}

std::optional<Json> TPLAPIRequest::parseResponse(const std::optional<std::string>& bytes) const {
  if (!bytes) return std::nullopt;
  auto parsed = platform::parseJson(*bytes, platform_.documentLimits()).value;
  return parsed && parsed->is_structured() ? std::move(parsed) : std::nullopt;
}

std::optional<std::string> TPLAPIRequest::fileNameFrom(const Url& url) const {
  return url ? cache_->fileNameFor(*url) : std::nullopt;
}

void TPLAPIRequest::writeToDiskFromURL(std::string_view bytes, const Url& url) {
  const auto error = url ? cache_->write(*url, bytes) : std::nullopt;
  if (error) platform_.systemLog().write("The status server's answer can't be kept: " + error->description);
}

std::optional<std::string> TPLAPIRequest::readFromDisk(const Url& url) const {
  return url ? cache_->read(*url) : std::nullopt;
}

}  // namespace wayloom
