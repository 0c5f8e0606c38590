#pragma once

#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace wayloom {

// A program that a test runs beside itself, and whose standard output it reads. Killed at the latest with the object.
class ChildProcess {
 public:
  struct Surroundings {
    std::string errors;                    // file that its standard error is appended to
    std::vector<std::string> environment;  // in place of the test's own
  };

  // The words are the program's name or path and its arguments.
  explicit ChildProcess(std::vector<std::string> words, Surroundings around = {}) {
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    if (!around.errors.empty())
      ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, around.errors.c_str(), O_WRONLY | O_APPEND | O_CREAT,
                                         0600);
    auto arguments = pointersTo(words);
    auto environment = pointersTo(around.environment);
    if (::posix_spawnp(&process_, arguments.front(), &actions, nullptr, arguments.data(),
                       around.environment.empty() ? environ : environment.data()) != 0)
      process_ = -1;
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[1]);
    output_ = pipe[0];
  }
  ~ChildProcess() {
    if (process_ > 0) end(SIGKILL);
    if (output_ >= 0) ::close(output_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // The next line of output, whole; false when there is none within that time, or will be none any more.
  bool readLine(std::string& line, int milliseconds = -1) {
    for (auto end = unread_.find('\n'); end == unread_.npos; end = unread_.find('\n'))
      if (!readMore(milliseconds)) return false;
    const auto end = unread_.find('\n');
    line = unread_.substr(0, end);
    unread_.erase(0, end + 1);
    return true;
  }

  void signal(int number) const {
    if (process_ > 0) ::kill(process_, number);
  }
  // The exit status; the negative number of the signal that ended it. What it has written can still be read.
  int end(int signal) {
    this->signal(signal);
    return wait();
  }
  int wait() {
    int status = 0;
    if (process_ <= 0 || ::waitpid(std::exchange(process_, -1), &status, 0) < 0) return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

 private:
  static std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
  }

  bool readMore(int milliseconds) {
    pollfd readable{output_, POLLIN, 0};
    if (::poll(&readable, 1, milliseconds) <= 0) return false;
    std::array<char, 4096> bytes{};
    const auto count = ::read(output_, bytes.data(), bytes.size());
    if (count > 0) unread_.append(bytes.data(), static_cast<std::size_t>(count));
    return count > 0;
  }

  pid_t process_ = -1;
  int output_ = -1;
  std::string unread_;
};

}  // namespace wayloom
