#include "inspect/text/Csv.h"

namespace morvix::inspect {

std::string CsvRow(const std::vector<std::string>& cells) {
  std::string row;
  for (const std::string& cell : cells) {
    if (&cell != &cells.front()) row += ',';
    if (cell.find_first_of(",\"\r\n") == std::string::npos) {
      row += cell;
      continue;
    }
    row += '"';
    for (const char c : cell) row += c == '"' ? std::string("\"\"") : std::string(1, c);
    row += '"';
  }
  return row + "\r\n";
}

}  // namespace morvix::inspect
