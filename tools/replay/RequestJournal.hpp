#pragma once

#include <mutex>
#include <string>

#include "wayloom/platform/HttpClient.hpp"

#include "backends/posix/FileDescriptor.hpp"

namespace wayloom::tools {

// A request that an endpoint received.
struct ReceivedRequest {
  std::string path;               // as it was asked for, query included
  platform::HttpHeaders headers;  // of interest, names in the letters of the wire
  std::string body;
  int status = 0;     // what is answered, or would be
  std::string fault;  // what goes wrong with the answer; empty for nothing
};

// Keeps requests in a file, one JSON object a line:
//
//   {"t":1700000000.25,"status":200,"path":"/events","headers":{"AUTHORIZATION":"...",...},"body":{...}}
//
// "t" is when it was received, seconds since 1970. A body that is no JSON is "body_text", its bytes that are no UTF-8
// replaced. "fault" is there when the answer was spoilt. A line is in the file before the answer is sent, and is
// written at once, so that lines of several writers never mix. What a full disk tore stays, on a line of its own. Any
// thread.
class RequestJournal {
 public:
  // Appends to the file, which is made when it is missing and readable for its owner only: tokens are in it.
  // Throws std::system_error when it can't be opened.
  explicit RequestJournal(const std::string& path);

  // 0 when the line was written whole, else an errno.
  int keep(const ReceivedRequest& request);

 private:
  posix::FileDescriptor file_;
  std::mutex mutex_;
  bool isTorn_ = false;  // whether the file's last line has no end
};

}  // namespace wayloom::tools
