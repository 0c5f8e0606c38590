#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace wayloom {

// What an update of TWLMapConfigRepo tells about its progress, for displays.
struct MapUpdateStep {
  enum class Kind {
    document,  // the server was asked for the map configuration document; `total` is known from now on
    map,       // one map's image has been seen to
    ended      // nothing more comes of this update; the document's maps are loaded, if there was a newer one
  };
  enum class Outcome {
    unchanged,   // what is here is not older than the server's
    downloaded,  // of `ended`: there is a newer document
    refused,     // a map whose id or file path can't be used; a document without maps
    failed       // of `ended`: the document could not be fetched or used, and nothing has changed
  };

  Kind kind = Kind::document;
  Outcome outcome = Outcome::unchanged;
  std::string mapId = {};   // of a map
  std::size_t bytes = 0;    // downloaded
  std::size_t done = 0;     // maps seen to so far, whatever the outcome
  std::size_t total = 0;    // maps of the document
  std::string reason = {};  // for people, when it was refused or failed
};

using MapUpdateObserver = std::function<void(const MapUpdateStep&)>;

}  // namespace wayloom
