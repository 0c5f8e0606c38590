#include "storage/DatabaseDump.hpp"

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

std::string dumpOf(DatabaseConnection& connection, std::string_view query) {
  std::string text = std::string(query) + "\n";
  auto rows = connection.executeQuery(query);
  std::string line;
  for (int column = 0; column < rows.columnCount(); ++column) appendCell(line, rows.columnName(column));
  text += "| " + line + " | \n";
  while (rows.next()) {
    line.clear();
    for (int column = 0; column < rows.columnCount(); ++column)
      appendCell(line, rows.isNull(column) ? "(null)" : rows.text(column));
    text += "| " + line + " |\n";
  }
  return text;
}

}  // namespace wayloom::storage
