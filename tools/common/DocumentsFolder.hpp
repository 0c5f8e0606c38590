#pragma once

#include <memory>
#include <string>

namespace wayloom::tools {

// Who is told of SIGINT, SIGTERM and SIGHUP while a command runs.
enum class StopSignals { areHandled, endTheProgram };

// The folder that an option names, made when it is missing, or, where it names none, a fresh one that goes with this
// object; also when one of those signals ends the program, unless the command handles them itself. Throws
// std::runtime_error when it can't be made or written to.
class DocumentsFolder {
 public:
  explicit DocumentsFolder(const std::string& named, StopSignals signals = StopSignals::areHandled);
  ~DocumentsFolder();
  DocumentsFolder(const DocumentsFolder&) = delete;
  DocumentsFolder& operator=(const DocumentsFolder&) = delete;

  const std::string& path() const { return path_; }  // absolute

 private:
  struct Fresh;
  std::unique_ptr<Fresh> fresh_;
  std::string path_;
};

}  // namespace wayloom::tools
