#pragma once

#include <string>

namespace wayloom::linux_ {

// Why nobody can be listening at any of `addresses` (a list as D-Bus writes it: entries with ';' between them; empty:
// the system bus), or "" when somebody is, or when only opening it would tell. For a look before a connection is made:
// the message bus library loses the memory of one that fails, which adds up where the bus is asked for every other
// second. Any thread; doesn't wait.
std::string busAbsence(const std::string& addresses);

}  // namespace wayloom::linux_
