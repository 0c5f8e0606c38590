// The region engine's levelled log, on the platform's console.
//
//   TGFLogger::log(platform, TGFLogLevel::error, "API Data Write to Cache Failed with Error: %@", error);
#pragma once

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>

#include "wayloom/platform/Error.hpp"

namespace wayloom {

namespace platform {
class Platform;
}

enum TGFLogLevel : int { emergency = 0, alert, critical, error, warning, notice, info, debug };

// Thread-safe. The level is one for each Platform.
class TGFLogger {
 public:
  static void setLevel(platform::Platform& platform, int level);  // kept within a signed byte; initially 1
  static bool logs(platform::Platform& platform, int level);

  // Writes a line when the level is not above the set one and is one of the eight. Each "%@" of the format is filled
  // with the next argument: a text, an integer or an error. Control characters in arguments come out as blanks, so that
  // outside text can't begin a line of its own.
  template <class... Arguments>
  static void log(platform::Platform& platform, int level, std::string_view format, const Arguments&... arguments) {
    if (logs(platform, level)) write(platform, level, format, {textOf(arguments)...});
  }

 private:
  struct Level;
  static std::atomic<std::int8_t>& levelOf(platform::Platform& platform);

  static std::string textOf(std::string_view text) { return std::string(text); }
  static std::string textOf(const platform::Error& error);
  template <class Number>
    requires std::is_integral_v<Number>
  static std::string textOf(Number number) {
    return std::to_string(number);
  }
  static void write(platform::Platform& platform, int level, std::string_view format,
                    std::initializer_list<std::string> arguments);
};

}  // namespace wayloom
