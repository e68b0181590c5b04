// Printing rows of values as an aligned table, JSON or CSV.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace alertdb_tool {

enum class OutputFormat { Table, Json, Csv };

// Adds --format table|json|csv to a command.
void addFormatOption(CLI::App &command, OutputFormat &format);

// Prints `rows` (JSON objects) with the given columns in their order. JSON is
// an array of the objects as they are; table and CSV show each value as text.
void printRows(OutputFormat format, const std::vector<std::string> &columns,
               const nlohmann::ordered_json &rows);

// Prints a JSON document on standard output, indented, ending with a newline.
void printJson(const nlohmann::ordered_json &document);

}  // namespace alertdb_tool
