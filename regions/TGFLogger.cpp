#include "wayloom/regions/TGFLogger.hpp"

#include <algorithm>
#include <array>
#include <limits>

#include "wayloom/platform/Platform.hpp"

namespace wayloom {
namespace {

constexpr std::array<std::string_view, 8> kNames = {"Emergency", "Alert",  "Critical", "Error",
                                                    "Warning",   "Notice", "Info",     "Debug"};

char printable(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte < 0x20 || byte == 0x7F ? ' ' : character;
}

std::string filled(std::string_view format, std::initializer_list<std::string> arguments) {
  std::string text;
  for (const auto& argument : arguments) {
    const auto place = std::min(format.find("%@"), format.size());
    text += format.substr(0, place);
    format.remove_prefix(std::min(place + 2, format.size()));
    std::transform(argument.begin(), argument.end(), std::back_inserter(text), printable);
  }
  text += format;
  return text;
}

}  // namespace

struct TGFLogger::Level {
  std::atomic<std::int8_t> value{static_cast<std::int8_t>(TGFLogLevel::alert)};
};

std::atomic<std::int8_t>& TGFLogger::levelOf(platform::Platform& platform) {
  return platform.shared<Level>([] { return std::make_unique<Level>(); }).value;
}

void TGFLogger::setLevel(platform::Platform& platform, int level) {
  using Limits = std::numeric_limits<std::int8_t>;
  levelOf(platform) = static_cast<std::int8_t>(std::clamp<int>(level, Limits::min(), Limits::max()));
}

bool TGFLogger::logs(platform::Platform& platform, int level) {
  return level >= 0 && level < static_cast<int>(kNames.size()) && level <= levelOf(platform);
}

std::string TGFLogger::textOf(const platform::Error& error) {
  return error.description + " (" + error.domain + " " + std::to_string(error.code) + ")";
}

void TGFLogger::write(platform::Platform& platform, int level, std::string_view format,
                      std::initializer_list<std::string> arguments) {
  std::string line = "Geofold[";
  line += kNames[static_cast<std::size_t>(level)];
  line += "] ";
  platform.console().write(line + filled(format, arguments));
}

}  // namespace wayloom
