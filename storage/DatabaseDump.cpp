#include "wayloom/storage/DatabaseDump.hpp"

#include <cstdio>
#include <string>

namespace wayloom::storage {
namespace {

void appendCell(std::string& line, std::string_view text) {
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    line += byte < 0x20 || byte == 0x7F ? ' ' : character;
  }
  line += " | ";
}

}  // namespace

bool dumpQuery(DatabaseConnection& connection, std::string_view query, const TextSink& sink) {
  auto rows = connection.executeQuery(query);
  std::string line = std::string(query) + "\n| ";
  for (int column = 0; column < rows.columnCount(); ++column) appendCell(line, rows.columnName(column));
  if (!sink(line + " | \n")) return false;
  while (rows.next()) {
    line = "| ";
    for (int column = 0; column < rows.columnCount(); ++column)
      appendCell(line, rows.isNull(column) ? "(null)" : rows.text(column));
    if (!sink(line += " |\n")) return false;
  }
  return true;
}

bool toStandardOutput(std::string_view text) { return std::fwrite(text.data(), 1, text.size(), stdout) == text.size(); }

}  // namespace wayloom::storage
