// The "describe" command: the fields of one table, as the data file's own
// catalog records them.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <vector>

#include "alertdb.h"
#include "tools/catalog_records.h"
#include "tools/commands.h"
#include "tools/field_values.h"
#include "tools/output_format.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

struct DescribeOptions {
  std::vector<std::string> fileAndTable;
  OutputFormat format = OutputFormat::Table;
};

nlohmann::ordered_json describeFields(const platform::StoreTableInfo &info) {
  nlohmann::ordered_json fields = nlohmann::ordered_json::array();
  for (const platform::StoreFieldInfo &f : info.fields) {
    fields.push_back({{"name", f.name},
                      {"description", f.description},
                      {"kind", fieldKindName(fieldKind(f))},
                      {"key", f.keyNumber},
                      {"attribute", f.attribute},
                      {"size", f.size},
                      {"flags", fmt::format("{:#x}", f.flags)},
                      {"queryType", f.queryType}});
  }
  return fields;
}

void printDescriptionText(const platform::StoreTableInfo &info) {
  std::printf("%s: %s (%u records, object-ID key %u)\n", info.name.c_str(), info.title.c_str(),
              info.recordCount, info.idKey);
  std::printf("  %-3s %-26s %-10s %4s %5s %6s %8s  %s\n", "no", "field", "kind", "key", "attr",
              "size", "flags", "description");
  for (std::size_t i = 0; i < info.fields.size(); ++i) {
    const platform::StoreFieldInfo &f = info.fields[i];
    std::printf("  %-3zu %-26s %-10s %4u %5u %6u %#8x  %s%s%s\n", i, f.name.c_str(),
                fieldKindName(fieldKind(f)), f.keyNumber, f.attribute, f.size, f.flags,
                f.description.c_str(), f.queryType.empty() ? "" : "  ", f.queryType.c_str());
  }
}

int runDescribe(const DescribeOptions &options) {
  const std::string &file = options.fileAndTable[0];
  const std::string &table = options.fileAndTable[1];
  std::unique_ptr<StoreFile> store = openDataFile(file);
  platform::StoreTableInfo info;
  std::uint32_t status = store->tableInfo(table, &info);
  if (status == platform::QDB_E_NOTABLE) {
    failWithStatus(ALRT_E_NOTABLE, fmt::format("{} holds no table {}", file, table));
  }
  if (status != 0) failWithStatus(status, fmt::format("cannot read {} in {}", table, file));
  switch (options.format) {
    case OutputFormat::Json:
      printJson({{"file", file},
                 {"table", info.name},
                 {"title", info.title},
                 {"records", info.recordCount},
                 {"idKey", info.idKey},
                 {"fields", describeFields(info)}});
      break;
    case OutputFormat::Csv:
      printRows(OutputFormat::Csv,
                {"name", "description", "kind", "key", "attribute", "size", "flags", "queryType"},
                describeFields(info));
      break;
    case OutputFormat::Table:
      printDescriptionText(info);
      break;
  }
  return 0;
}

}  // namespace

void addDescribeCommand(CLI::App &tool) {
  static DescribeOptions options;
  CLI::App &command = addCommand(tool, "describe", "show the fields of a table",
                                 [] { return runDescribe(options); });
  command.add_option("FILE TABLE", options.fileAndTable, "the data file and the table")
      ->expected(2)
      ->required();
  addFormatOption(command, options.format);
}

}  // namespace alertdb_tool
