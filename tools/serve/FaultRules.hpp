// What the development server does wrong on purpose, and how often.
//
// A rule is a text: an optional target and ":", then items between commas.
//
//   analytics:fail=503,chance=0.3        /maps/plans:cut=100        slow=2s,times=3        status:hang
//
//   target       kit, maps, analytics or status; a path that begins with "/", for everything below it; none for all
//   slow=TIME    the answer begins so much later: 2s, 1.5s, 250ms
//   rate=BYTES   the answer comes at that many bytes a second
//   fail=STATUS  that status and a short error page instead of the answer
//   garbage      the body's bytes are random; garbage=all: those of status line and headers, too
//   cut=BYTES    the connection ends after that many bytes of the answer, the headers counted; 0: no answer at all
//   hang         no answer, until the client gives up
//   chance=P     only for that share of the requests, 0 to 1
//   times=N      only for the first N requests that it would apply to
#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "wayloom/platform/Time.hpp"
#include "wayloom/sim/SeededRandom.hpp"

namespace wayloom::tools {

// What goes wrong with one answer.
struct Fault {
  std::string text;  // its items as they were written; empty: nothing goes wrong
  platform::Duration slow{};
  std::optional<std::size_t> rate = {};  // bytes a second
  std::optional<int> status = {};
  bool spoilsBody = false;
  bool spoilsAll = false;
  std::optional<std::size_t> cut = {};
  bool hangs = false;
  std::uint64_t seed = 0;  // of the random bytes
};

struct FaultRule {
  std::string text;    // as it was written
  std::string target;  // empty for all
  Fault fault;
  double chance = 1.0;
  std::optional<unsigned> times = {};  // how often it still applies
};

// Nothing, and the reason in `error`, when the text is no rule.
std::optional<FaultRule> parseFaultRule(std::string_view text, std::string& error);

// The rules in force. Any thread. One seed and one order of requests give the same faults.
class FaultRules {
 public:
  explicit FaultRules(std::uint64_t seed) : random_(seed, 0) {}

  // Replaces all rules by those of the text, which are separated by line ends or ";". On an error, which is returned,
  // the rules stay as they are; an empty text is no error and leaves no rule.
  std::string replace(std::string_view text);
  std::string text() const;  // one rule a line

  // The fault of the first rule that has this target and whose chance comes up.
  Fault draw(std::string_view target, std::string_view path);

 private:
  mutable std::mutex mutex_;
  std::vector<FaultRule> rules_;
  sim::SeededRandom random_;
  std::uint64_t drawn_ = 0;
};

}  // namespace wayloom::tools
