#pragma once

#include <functional>
#include <memory>
#include <string>

#include "wayloom/platform/FileManager.hpp"
#include "wayloom/platform/HttpClient.hpp"
#include "wayloom/platform/PropertyListReader.hpp"
#include "wayloom/platform/Tasks.hpp"
#include "wayloom/platform/Time.hpp"

namespace wayloom::sim {

class VenueFiles;

// The servers of a venue and the network to them, in memory: an HTTP client that answers from a venue folder.
//
//  - A GET or HEAD of the configured kit URL gets server/kit.json, of a path below /maps/ the file of that path below
//    server/maps/, with the file's modification date as Last-Modified. Any other gets an empty 404, and so does a path
//    with a ".." or "." in it.
//  - Every POST gets an empty 200.
//  - While the network is down every request fails with domain "HTTP", code 6.
//
// Requests are answered after the latency, which is zero at first: then the answer waits only for its queue. For the
// thread that drives the scheduler.
class VenueHttpServer : public platform::HttpClient {
 public:
  // The venue folder is an absolute path; with an empty one there is no file. The kit URLs are those of
  // bundle/Geofold.plist and bundle/Wayloom.plist.
  VenueHttpServer(std::shared_ptr<platform::TaskScheduler> tasks, std::shared_ptr<const platform::FileManager> files,
                  std::string venueFolder, const platform::PropertyListReader& propertyLists);
  ~VenueHttpServer() override;

  [[nodiscard]] std::unique_ptr<platform::HttpTask> send(platform::HttpRequest request, platform::TaskQueue& queue,
                                                         Handler handler) override;

  void setNetworkUp(bool up) { networkUp_ = up; }
  void setLatency(platform::Duration latency) { latency_ = latency; }
  // Called with every request when it is sent, answered or not.
  void setRequestObserver(std::function<void(const platform::HttpRequest&)> observer) {
    observer_ = std::move(observer);
  }

 private:
  void observe(const platform::HttpRequest& request) const;
  platform::HttpResponse answer(const platform::HttpRequest& request) const;

  std::shared_ptr<platform::TaskScheduler> tasks_;
  std::shared_ptr<const platform::FileManager> files_;
  std::unique_ptr<const VenueFiles> venue_;
  bool networkUp_ = true;
  platform::Duration latency_{};
  std::function<void(const platform::HttpRequest&)> observer_;
};

}  // namespace wayloom::sim
