// The "init" command: every table of the library in its default data file,
// opened or created through the table classes, and the user object table
// through the object manager. What is there already is left as it is.
#include <fmt/format.h>
#include <strings.h>

#include <CLI/CLI.hpp>
#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "alertdb.h"
#include "tools/catalog_records.h"
#include "tools/commands.h"
#include "tools/output_format.h"
#include "tools/tool_context.h"

namespace alertdb_tool {

namespace {

// Shows the table and file name a table class chose at construction.
template <class Table>
class TableProbe : public Table {
 public:
  const char *tableName() const { return this->m_pszTableName; }
  const char *fileName() const { return this->m_pszFileName; }
};

struct MakeResult {
  std::uint32_t status = 0;
  bool restored = false;
};

template <class Table>
MakeResult openOrMake() {
  MakeResult result;
  {
    Table table;
    result.status = OpenOrCreate(table);
    // A data file that is not there yet is made by creating the table in it.
    if (result.status == ALRT_MISSINGFILE) result.status = table.DBCreate();
    if (result.status != ALRT_E_ALTOPEN) return result;
  }
  // Restored from its backup, the file was opened in the recovery mode only;
  // in place now, it opens as any other.
  Table table;
  result.status = OpenOrCreate(table);
  result.restored = true;
  return result;
}

MakeResult makeUserObjectTable() { return {platform::KepOMCreateUserObjectTable(), false}; }

struct TableStep {
  std::string file;
  std::string table;
  MakeResult (*make)();
};

template <class Table>
TableStep step(MakeResult (*make)() = &openOrMake<Table>) {
  TableProbe<Table> probe;
  return {probe.fileName(), probe.tableName(), make};
}

// In the order of the data files the tool reports.
std::vector<TableStep> tableSteps() {
  return {
      step<CAlert_SRV_CFGDB>(),
      step<CAlertSERV_TRAPListDB>(),
      step<CAlertSERV_AUTOPINGDB>(),
      step<CAlertSERV_MODEMDB>(),
      step<CAlertSERV_INST_NTFY_SERVDB>(),
      step<CAlert_EXTAGT_CFGDB>(),
      step<CAlertAGNT_SERV_RELDB>(),
      step<CAlertSERV_AGNT_RELDB>(),
      step<CAlertMODEM_LOCATIONDB>(),
      step<CAlertAPAGE_SERVICE_PROVIDERDB>(),
      step<CAlertNtfyServDB>(),
      step<CAlertMHSNtfyServDB>(),
      step<CAlertSNMPNtfyServDB>(),
      step<CAlertMCINtfyServDB>(),
      step<CAlertCOMPUSNtfyServDB>(),
      step<CAlertSMTPNtfyServDB>(),
      step<CAlertMAPINtfyServDB>(),
      step<CAlertCCMAILNtfyServDB>(),
      step<CAlertWAVENtfyServDB>(),
      step<CAlertTTSNtfyServDB>(),
      step<CAlertPHONENtfyServDB>(),
      step<CAlertAPAGENtfyServDB>(),
      step<CAlertNPAGENtfyServDB>(),
      step<CAlertGENPORTNtfyServDB>(),
      step<CAlertBROADCASTNtfyServDB>(),
      step<CAlertEVENT_CLASSDB>(),
      step<CAlertEVENT_RESPDB>(),
      step<CAlertEVENT_LOGDB>(),
      step<CAlertRespDB>(),
      step<CAlertRespResultsDB>(),
      step<CAlertUsrDB>(),
      step<CAlertUsrInstServDB>(),
      step<CAlertUSR_MHSDB>(),
      step<CAlertUSR_SNMPDB>(),
      step<CAlertUSR_MCIDB>(),
      step<CAlertUSR_COMPUDB>(),
      step<CAlertUSR_SMTPDB>(),
      step<CAlertUSR_MAPIDB>(),
      step<CAlertUSR_CCMAILDB>(),
      step<CAlertUSR_APAGEDB>(),
      step<CAlertUSR_NPAGEDB>(),
      step<CUsrDB>(&makeUserObjectTable),
  };
}

// Data files are one file whatever the letter case of their name.
std::string fileKey(const std::string &file) {
  std::string key = file;
  for (char &c : key) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return key;
}

// The name the tool reports a file under: its name in dataFiles().
std::string reportedName(const std::string &file) {
  for (const std::string &known : dataFiles()) {
    if (strcasecmp(known.c_str(), file.c_str()) == 0) return known;
  }
  return file;
}

// The tables each data file holds before anything is made, by file key.
// Ends the command, having made nothing, when a file is refused.
std::map<std::string, std::set<std::string>> tablesBefore(const std::vector<TableStep> &steps) {
  std::map<std::string, std::set<std::string>> before;
  std::vector<std::string> refused;
  for (const TableStep &s : steps) {
    std::string key = fileKey(s.file);
    if (before.count(key)) continue;
    before[key];
    std::string path = dataPath(s.file);
    if (!platform::FileExists(path.c_str())) continue;
    StoreFile store(path);
    std::vector<std::string> names;
    std::uint32_t status = store.isOpen() ? store.tableNames(&names) : kRefusedFileStatus;
    if (status != 0) {
      refused.push_back(describeStatus(status, refusedFileText(reportedName(s.file))));
      continue;
    }
    before[key].insert(names.begin(), names.end());
  }
  if (!refused.empty()) {
    std::string text;
    for (const std::string &each : refused) text += (text.empty() ? "" : "\n") + each;
    throw ToolError(text +
                    "\nnothing was made; `alertdb check` and `alertdb recover` look into a "
                    "damaged file");
  }
  return before;
}

int runInit(OutputFormat format) {
  std::vector<TableStep> steps = tableSteps();
  std::map<std::string, std::set<std::string>> before = tablesBefore(steps);
  // A missing data file with a backup comes back from it when its first table opens.
  std::set<std::string> fromBackup;
  for (const TableStep &s : steps) {
    std::string path = dataPath(s.file);
    if (!platform::FileExists(path.c_str()) && platform::FileExists(backupPathOf(path).c_str())) {
      fromBackup.insert(fileKey(s.file));
    }
  }
  nlohmann::ordered_json rows = nlohmann::ordered_json::array();
  int made = 0, there = 0, failed = 0;
  for (const TableStep &s : steps) {
    bool wasThere = before[fileKey(s.file)].count(s.table) != 0;
    MakeResult result = s.make();
    nlohmann::ordered_json row = {{"file", reportedName(s.file)}, {"table", s.table}};
    if (result.status != 0) {
      row["result"] = "failed";
      row["status"] = AlertDBStatusName(result.status);
      std::fprintf(stderr, "alertdb init: %s\n",
                   describeStatus(result.status, fmt::format("cannot open or create {} in {}",
                                                             s.table, reportedName(s.file)))
                       .c_str());
      ++failed;
    } else if (wasThere) {
      row["result"] = "there";
      ++there;
    } else {
      row["result"] = result.restored || fromBackup.count(fileKey(s.file)) ? "restored" : "made";
      ++made;
    }
    rows.push_back(std::move(row));
  }
  std::vector<std::string> columns = {"file", "table", "result"};
  if (failed) columns.push_back("status");
  printRows(format, columns, rows);
  if (format == OutputFormat::Table) {
    std::string summary = fmt::format("{} made, {} there", made, there);
    if (failed) summary += fmt::format(", {} failed", failed);
    std::printf("%s in %s\n", summary.c_str(), dataDirectory().c_str());
  }
  return failed == 0 ? 0 : 1;
}

}  // namespace

void addInitCommand(CLI::App &tool) {
  static OutputFormat format = OutputFormat::Table;
  CLI::App &command =
      addCommand(tool, "init",
                 "make every table of the library in its data file; tables already there are kept",
                 [] { return runInit(format); });
  addFormatOption(command, format);
}

}  // namespace alertdb_tool
