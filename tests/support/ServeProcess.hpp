#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/ChildProcess.hpp"

namespace wayloom {

// A `wayloom serve` that runs as a process of its own, on any free port unless the options name one.
class ServeProcess : public ChildProcess {
 public:
  // Waits until it serves, or has ended with an error.
  explicit ServeProcess(const std::string& venue, std::vector<std::string> options = {})
      : ChildProcess(words(venue, std::move(options))) {
    readLine(url_);
  }

  // "http://127.0.0.1:40123", empty when it doesn't serve.
  const std::string& url() const { return url_; }

 private:
  static std::vector<std::string> words(const std::string& venue, std::vector<std::string> options) {
    std::vector<std::string> words = {WAYLOOM_BINARY_DIR "/wayloom", "serve", "--quiet", "--venue", venue};
    const bool hasPort = std::find(options.begin(), options.end(), "--port") != options.end();
    if (!hasPort) words.insert(words.end(), {"--port", "0"});
    words.insert(words.end(), options.begin(), options.end());
    return words;
  }

  std::string url_;
};

}  // namespace wayloom
