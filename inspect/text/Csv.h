// Comma-separated values, as RFC 4180 has them.

#ifndef MORVIX_INSPECT_TEXT_CSV_H
#define MORVIX_INSPECT_TEXT_CSV_H

#include <string>
#include <vector>

namespace morvix::inspect {

// One record with its line end, CRLF. A cell with a comma, quotation mark or line end is put in quotation marks.
std::string CsvRow(const std::vector<std::string>& cells);

}  // namespace morvix::inspect

#endif
