#pragma once

#include <csignal>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace wayloom::tests {

// A program that runs until it is ended; with a standard output that can be read from, if wanted.
class ChildProcess {
 public:
  // `environment`: in place of this process's own.
  explicit ChildProcess(std::vector<std::string> command, std::vector<std::string> environment = {}) {
    int ends[2];
    if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    posix_spawn_file_actions_addclose(&actions, ends[1]);
    const int failure = ::posix_spawnp(&id_, command.front().c_str(), &actions, nullptr, pointers(command).data(),
                                       environment.empty() ? environ : pointers(environment).data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    output_ = ends[0];
    if (failure != 0) throw std::runtime_error("can't run " + command.front());
  }
  ~ChildProcess() {
    end();
    ::close(output_);
  }
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  std::string readLine() const {
    std::string line;
    for (char c = 0; ::read(output_, &c, 1) == 1 && c != '\n';) line += c;
    return line;
  }

  void signal(int number) const { ::kill(id_, number); }

  // Ends the program if it runs, and waits for it.
  int end() {
    if (id_ <= 0) return status_;
    signal(SIGCONT);
    signal(SIGTERM);
    return wait();
  }
  int wait() {
    if (id_ > 0) ::waitpid(id_, &status_, 0);
    id_ = 0;
    return status_;
  }

 private:
  static std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
  }

  pid_t id_ = 0;
  int output_ = -1;
  int status_ = 0;
};

}  // namespace wayloom::tests
