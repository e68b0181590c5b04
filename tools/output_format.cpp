#include "tools/output_format.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <map>

namespace alertdb_tool {

namespace {

std::string cellText(const nlohmann::ordered_json &value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_null()) return "";
  return value.dump();
}

std::string csvField(const std::string &text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"') quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

// Control characters would break the table's lines.
std::string tableCell(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
  return text;
}

void printTable(const std::vector<std::string> &columns, const nlohmann::ordered_json &rows) {
  std::vector<std::size_t> widths;
  for (const std::string &column : columns) widths.push_back(column.size());
  std::vector<std::vector<std::string>> cells;
  for (const auto &row : rows) {
    std::vector<std::string> line;
    for (std::size_t i = 0; i < columns.size(); ++i) {
      line.push_back(tableCell(row.contains(columns[i]) ? cellText(row[columns[i]]) : ""));
      widths[i] = std::max(widths[i], line.back().size());
    }
    cells.push_back(std::move(line));
  }
  auto printLine = [&](const std::vector<std::string> &line) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      text += line[i];
      if (i + 1 < line.size()) text += std::string(widths[i] - line[i].size() + 2, ' ');
    }
    std::printf("%s\n", text.c_str());
  };
  printLine(columns);
  for (const auto &line : cells) printLine(line);
}

}  // namespace

void addFormatOption(CLI::App &command, OutputFormat &format) {
  static const std::map<std::string, OutputFormat> kFormats = {
      {"table", OutputFormat::Table}, {"json", OutputFormat::Json}, {"csv", OutputFormat::Csv}};
  command
      .add_option_function<std::string>(
          "--format",
          [&format](const std::string &name) { format = kFormats.at(CLI::detail::to_lower(name)); },
          "output format: table, json or csv")
      ->check(CLI::IsMember({"table", "json", "csv"}, CLI::ignore_case))
      ->option_text("table|json|csv");
}

void printRows(OutputFormat format, const std::vector<std::string> &columns,
               const nlohmann::ordered_json &rows) {
  switch (format) {
    case OutputFormat::Json:
      printJson(rows);
      return;
    case OutputFormat::Csv: {
      std::string header;
      for (std::size_t i = 0; i < columns.size(); ++i)
        header += (i ? "," : "") + csvField(columns[i]);
      std::printf("%s\r\n", header.c_str());
      for (const auto &row : rows) {
        std::string line;
        for (std::size_t i = 0; i < columns.size(); ++i) {
          line +=
              (i ? "," : "") + csvField(row.contains(columns[i]) ? cellText(row[columns[i]]) : "");
        }
        std::printf("%s\r\n", line.c_str());
      }
      return;
    }
    case OutputFormat::Table:
      printTable(columns, rows);
      return;
  }
}

void printJson(const nlohmann::ordered_json &document) {
  // Texts from damaged or foreign records may not be UTF-8; replace, never throw.
  std::printf("%s\n",
              document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

}  // namespace alertdb_tool
