// Reading properties out of messages whose sender may be wrong about their types.
#pragma once

#include <cstdint>
#include <sdbus-c++/sdbus-c++.h>
#include <string>
#include <string_view>
#include <utility>

namespace wayloom::linux_ {

// What a variant that is next in the message holds: a D-Bus signature.
inline std::string variantContent(const sdbus::Message& message) {
  std::string type;
  std::string content;
  message.peekType(type, content);
  return content;
}

inline void skipVariant(sdbus::Message& message) {
  sdbus::Variant skipped;
  message >> skipped;
}

// Reads a variant of one type; false, and the variant is skipped, when it holds another.
template <class Value>
bool readVariant(sdbus::Message& message, const char* signature, Value& value) {
  if (variantContent(message) != signature) {
    skipVariant(message);
    return false;
  }
  message.enterVariant(signature);
  message >> value;
  message.exitVariant();
  return true;
}

// Calls `read(key)` for each entry of the a{sv} that is next; it must read the variant and leave nothing of it.
template <class Read>
void forEachProperty(sdbus::Message& message, Read read) {
  if (!message.enterContainer("{sv}")) {
    message.clearFlags();
    return;
  }
  while (message.enterDictEntry("sv")) {
    std::string key;
    message >> key;
    read(std::string_view(key));
    message.exitDictEntry();
  }
  message.clearFlags();
  message.exitContainer();
}

}  // namespace wayloom::linux_
