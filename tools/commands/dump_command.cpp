// The "dump" command: the records of any table, read through the record
// store with the layout its catalog gives, never written.
#include <fmt/format.h>
#include <strings.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "alertdb.h"
#include "tools/catalog_records.h"
#include "tools/commands.h"
#include "tools/data_file_list.h"
#include "tools/field_values.h"
#include "tools/output_format.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

struct DumpOptions {
  std::string table;
  std::vector<std::string> where;
  OutputFormat format = OutputFormat::Table;
  std::size_t limit = 0;
  bool showSecrets = false;
};

struct LocatedTable {
  std::string file;
  std::unique_ptr<StoreFile> store;
  platform::StoreTableInfo info;
};

struct Condition {
  std::size_t field;
  FieldKind kind;
  std::string value;
};

std::uint32_t readTableInfo(const StoreFile &store, const std::string &file,
                            const std::string &table, platform::StoreTableInfo *info) {
  std::uint32_t status = store.tableInfo(table, info);
  if (status != 0 && status != platform::QDB_E_NOTABLE) {
    failWithStatus(status, fmt::format("cannot read the catalog entry of {} in {}", table, file));
  }
  return status;
}

// "FILE:TABLE", or a table name looked for in every data file of the directory.
LocatedTable locateTable(const std::string &wanted) {
  LocatedTable found;
  if (std::size_t colon = wanted.find(':'); colon != std::string::npos) {
    found.file = wanted.substr(0, colon);
    std::string table = wanted.substr(colon + 1);
    found.store = openDataFile(found.file);
    if (readTableInfo(*found.store, found.file, table, &found.info) != 0) {
      failWithStatus(ALRT_E_NOTABLE, fmt::format("{} holds no table {}", found.file, table));
    }
    return found;
  }
  std::vector<std::string> holders, caseHolders, refused;
  for (const std::string &file : dataFilesToList()) {
    std::string path = dataFilePath(file);
    if (!platform::FileExists(path.c_str())) continue;
    StoreFile store(path);
    std::vector<std::string> names;
    if (!store.isOpen() || store.tableNames(&names) != 0) {
      refused.push_back(file);
      continue;
    }
    for (const std::string &name : names) {
      if (name == wanted) holders.push_back(file);
      if (strcasecmp(name.c_str(), wanted.c_str()) == 0) caseHolders.push_back(file + ":" + name);
    }
  }
  if (holders.empty() && caseHolders.size() == 1) return locateTable(caseHolders[0]);
  if (holders.size() > 1) {
    throw ToolError(fmt::format("{} is a table of {}: name one as FILE:{}", wanted,
                                fmt::join(holders, " and "), wanted));
  }
  if (holders.empty()) {
    if (!refused.empty()) {
      failWithStatus(kRefusedFileStatus,
                     fmt::format("no readable data file holds a table {}; {}", wanted,
                                 refusedFileText(fmt::format("{}", fmt::join(refused, ", ")))));
    }
    failWithStatus(ALRT_E_NOTABLE, fmt::format("no data file holds a table {} (`alertdb tables` "
                                               "lists them)",
                                               wanted));
  }
  return locateTable(holders[0] + ":" + wanted);
}

std::vector<Condition> parseConditions(const DumpOptions &options, const LocatedTable &located,
                                       const std::vector<FieldKind> &kinds) {
  std::vector<Condition> conditions;
  const auto &fields = located.info.fields;
  for (const std::string &each : options.where) {
    std::size_t equals = each.find('=');
    std::string name = each.substr(0, equals);
    std::string value = each.substr(equals + 1);
    std::optional<std::size_t> index;
    for (std::size_t i = 0; i < fields.size() && !index; ++i) {
      if (fields[i].name == name) index = i;
    }
    for (std::size_t i = 0; i < fields.size() && !index; ++i) {
      if (strcasecmp(fields[i].name.c_str(), name.c_str()) == 0) index = i;
    }
    if (!index) {
      std::vector<std::string> names;
      for (const auto &f : fields) names.push_back(f.name);
      throw ToolError(fmt::format("{} has no field {} (its fields: {})", located.info.name, name,
                                  fmt::join(names, ", ")));
    }
    conditions.push_back({*index, kinds[*index], value});
  }
  return conditions;
}

// A condition on an object-ID or number key lets the walk start at its value
// and end after its records instead of reading the whole table.
struct KeyWalk {
  std::uint32_t key = 0;
  std::optional<std::size_t> condition;
  std::vector<unsigned char> value;
};

KeyWalk chooseWalk(const platform::StoreTableInfo &info, const std::vector<Condition> &conditions) {
  KeyWalk walk;
  walk.key = info.idKey;
  for (std::size_t i = 0; i < conditions.size(); ++i) {
    const Condition &c = conditions[i];
    const platform::StoreFieldInfo &field = info.fields[c.field];
    if (field.keyNumber == 0) continue;
    if (c.kind == FieldKind::ObjectId) {
      _GUID id;
      if (!platform::GuidFromString(c.value.c_str(), &id)) continue;
      const auto *bytes = reinterpret_cast<const unsigned char *>(&id);
      walk.value.assign(bytes, bytes + sizeof id);
    } else if (c.kind == FieldKind::Number) {
      std::uint64_t number = 0;
      try {
        std::size_t used = 0;
        number = std::stoull(c.value, &used, 10);
        if (used != c.value.size() || (field.size < 8 && number >> (8 * field.size) != 0)) continue;
      } catch (const std::exception &) {
        continue;
      }
      walk.value.clear();
      for (std::uint32_t b = 0; b < field.size; ++b) {
        walk.value.push_back(static_cast<unsigned char>(number >> (8 * b)));
      }
    } else {
      continue;
    }
    walk.key = field.keyNumber;
    walk.condition = i;
    break;
  }
  return walk;
}

void printDump(const DumpOptions &options, const LocatedTable &located,
               const nlohmann::ordered_json &records) {
  const platform::StoreTableInfo &info = located.info;
  std::vector<std::string> columns;
  nlohmann::ordered_json fields = nlohmann::ordered_json::array();
  nlohmann::ordered_json titles = nlohmann::ordered_json::object();
  for (const auto &f : info.fields) {
    columns.push_back(f.name);
    titles[f.name] = f.description;
    fields.push_back(
        {{"name", f.name}, {"description", f.description}, {"kind", fieldKindName(fieldKind(f))}});
  }
  switch (options.format) {
    case OutputFormat::Json:
      printJson({{"file", located.file},
                 {"table", info.name},
                 {"title", info.title},
                 {"fields", fields},
                 {"records", records}});
      return;
    case OutputFormat::Csv:
      printRows(OutputFormat::Csv, columns, records);
      return;
    case OutputFormat::Table: {
      std::printf("%s in %s: %s, %zu record%s\n", info.name.c_str(), located.file.c_str(),
                  info.title.c_str(), records.size(), records.size() == 1 ? "" : "s");
      // The field descriptions as a second header line.
      nlohmann::ordered_json rows = nlohmann::ordered_json::array({titles});
      for (const auto &record : records) rows.push_back(record);
      printRows(OutputFormat::Table, columns, rows);
      return;
    }
  }
}

int runDump(const DumpOptions &options) {
  LocatedTable located = locateTable(options.table);
  const platform::StoreTableInfo &info = located.info;
  std::vector<FieldKind> kinds;
  for (const auto &f : info.fields) kinds.push_back(fieldKind(f));
  std::vector<Condition> conditions = parseConditions(options, located, kinds);
  KeyWalk walk = chooseWalk(info, conditions);

  CatalogRecords records(*located.store, info);
  std::uint32_t status = records.select();
  if (status != 0) {
    failWithStatus(status,
                   fmt::format("cannot read {} in {} by its catalog", info.name, located.file));
  }
  // One snapshot for the whole walk, so that concurrent writers do not tear it.
  status = platform::QDBReadLock(located.store->handle());
  if (status != 0) failWithStatus(status, fmt::format("cannot read {}", located.file));

  nlohmann::ordered_json shown = nlohmann::ordered_json::array();
  std::size_t read = 0;
  status = walk.condition ? records.readFirstWith(walk.key, walk.value.data(),
                                                  static_cast<std::uint32_t>(walk.value.size()))
                          : records.readFirst(walk.key);
  while (status == 0) {
    ++read;
    nlohmann::ordered_json row = nlohmann::ordered_json::object();
    for (std::size_t i = 0; i < info.fields.size(); ++i) {
      row[info.fields[i].name] =
          fieldValue(kinds[i], records.field(i), info.fields[i].size, options.showSecrets);
    }
    bool matches = true;
    for (std::size_t i = 0; i < conditions.size(); ++i) {
      const Condition &c = conditions[i];
      if (valueMatches(c.kind, row[info.fields[c.field].name], c.value)) continue;
      matches = false;
      // Past the records of the key value the walk started at.
      if (walk.condition == i) status = platform::QDB_E_NOTFOUND;
    }
    if (status != 0) break;
    if (matches) {
      shown.push_back(std::move(row));
      if (options.limit != 0 && shown.size() >= options.limit) break;
    }
    status = records.readNext(walk.key);
  }
  platform::QDBReadUnlock(located.store->handle());

  printDump(options, located, shown);
  if (status == platform::QDB_E_DAMAGED) {
    failWithStatus(status, fmt::format("a record of {} in {} fails its checks after {} good ones; "
                                       "it and the records after it are not shown (`alertdb "
                                       "check` looks into the file)",
                                       info.name, located.file, read));
  }
  if (status != 0 && status != platform::QDB_E_NOTFOUND) {
    failWithStatus(status, fmt::format("reading {} in {} stopped after {} records", info.name,
                                       located.file, read));
  }
  return 0;
}

}  // namespace

void addDumpCommand(CLI::App &tool) {
  static DumpOptions options;
  CLI::App &command = addCommand(
      tool, "dump",
      "show the records of a table: object IDs as {GUID}, time stamps as ISO 8601, binary "
      "fields as hex (without trailing zero bytes), passwords as ***",
      [] { return runDump(options); });
  command.add_option("TABLE", options.table, "the table, or FILE:TABLE")->required();
  command
      .add_option("--where", options.where,
                  "only records whose FIELD shows VALUE; several are all to hold")
      ->type_name("FIELD=VALUE")
      ->allow_extra_args(false)
      ->check([](const std::string &condition) {
        return condition.find('=') == std::string::npos ? "not FIELD=VALUE: " + condition
                                                        : std::string();
      });
  addFormatOption(command, options.format);
  command.add_option("--limit", options.limit, "show at most N records")
      ->type_name("N")
      ->check(CLI::Range(std::size_t{1}, std::numeric_limits<std::size_t>::max())
                  .description("")
                  .name("N"));
  command.add_flag("--show-secrets", options.showSecrets, "show passwords in clear");
}

}  // namespace alertdb_tool
