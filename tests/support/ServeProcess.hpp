#pragma once

#include <algorithm>
#include <array>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace wayloom {

// A `wayloom serve` that runs as a process of its own.
class ServeProcess {
 public:
  // Waits until it serves, or has ended with an error.
  explicit ServeProcess(const std::string& venue, std::vector<std::string> options = {}) {
    std::vector<std::string> words = {WAYLOOM_BINARY_DIR "/wayloom", "serve", "--quiet", "--venue", venue};
    words.insert(words.end(), options.begin(), options.end());
    if (std::find(words.begin(), words.end(), "--port") == words.end()) words.insert(words.end(), {"--port", "0"});
    spawn(words);
    char character = 0;
    while (::read(output_, &character, 1) == 1 && character != '\n') url_.push_back(character);
  }
  ~ServeProcess() {
    if (process_ > 0) end(SIGKILL);
    ::close(output_);
  }
  ServeProcess(const ServeProcess&) = delete;
  ServeProcess& operator=(const ServeProcess&) = delete;

  // "http://127.0.0.1:40123", empty when it doesn't serve.
  const std::string& url() const { return url_; }
  pid_t process() const { return process_; }

  // The exit status, or -1 when the signal ended it.
  int end(int signal = SIGTERM) {
    ::kill(process_, signal);
    return wait();
  }
  int wait() {
    int status = 0;
    ::waitpid(std::exchange(process_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  void spawn(std::vector<std::string>& words) {
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    ::posix_spawn(&process_, arguments.front(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(pipe[1]);
    output_ = pipe[0];
  }

  pid_t process_ = -1;
  int output_ = -1;
  std::string url_;
};

}  // namespace wayloom
