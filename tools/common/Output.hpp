// Where the commands' text goes. Every command writes to standard output and standard error through these, and through
// nothing else: nothing here throws or ends the program, whatever becomes of the text.
#pragma once

#include <cstddef>
#include <fmt/format.h>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>

namespace wayloom::tools {

// The text as it may be shown on a terminal: each byte of control characters, and of what is no UTF-8, becomes "?".
std::string printable(std::string_view text);

// One descriptor. Any thread; what one call writes stays together.
class Output {
 public:
  enum class Buffering { none, whole };  // at each write; when there is a lot of text, and on flush()

  // The descriptor stays the caller's.
  Output(int descriptor, Buffering buffering) : descriptor_(descriptor), buffering_(buffering) {}
  ~Output() { flush(); }
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  // A text of ours, as it is.
  void write(std::string_view text) noexcept;

  // Formatted. Arguments that are texts may come from strangers: they are made printable.
  template <class... Arguments>
  void print(fmt::format_string<std::conditional_t<std::is_convertible_v<const Arguments&, std::string_view>,
                                                   std::string, Arguments>...>
                 format,
             const Arguments&... arguments) {
    write(fmt::vformat(format, fmt::make_format_args(shown(arguments)...)));
  }

  // Whether what was written has arrived, and more is wanted: no after a failure and when the reader has gone.
  bool flush() noexcept;

  // Whether nobody reads any more: the other end of a pipe or connection was closed. That is no failure.
  bool isClosed() const noexcept;
  // Why text was lost, an errno such as ENOSPC; 0 while none was.
  int failure() const noexcept;

  bool isTerminal() const noexcept;

 private:
  template <class Argument>
  static decltype(auto) shown(const Argument& argument) {
    if constexpr (std::is_convertible_v<const Argument&, std::string_view>)
      return printable(argument);
    else
      return (argument);
  }
  void send() noexcept;

  const int descriptor_;
  const Buffering buffering_;
  mutable std::mutex mutex_;
  std::string pending_;
  int error_ = 0;  // EPIPE when the reader has gone
};

Output& standardOutput();  // buffered, unless it is a terminal
Output& standardError();

// "wayloom: <text>" on standard error, made printable.
void complain(std::string_view text);

// Before anything is opened: a reader that goes is an outcome of a write and no longer ends the program, and no file
// takes the place of a standard stream that is closed.
void prepareStandardStreams();

// `status`, or that of a failed run, with a complaint, when standard output could not be written. A reader that has
// gone has seen what it wanted.
int finishStandardOutput(int status);

}  // namespace wayloom::tools
