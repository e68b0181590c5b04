// Reads one data file every way a caller can, for the damaged-file harness.
//
//   damaged_file_reader dump DIR FILE
//     every record of every table, by object ID, as the record store holds
//     it ("store TABLE ID HASH") and as the table classes give it ("class
//     TABLE ID HASH"), each table's layout, and the digest of the whole
//     ("state DIGEST"). Exit 2 when the file does not open.
//
//   damaged_file_reader check DIR FILE REFERENCE
//     opens the file with each open mode of the record store, then through
//     each table class of the file, every time from the bytes the file (and
//     its -wal) had at the start; reads every record by every key and by
//     object ID and compares each with the reference. Prints per step:
//       step NAME opened|refused STATUS
//       read NAME COUNT           records read, each one a version of the reference
//       end NAME STATUS COUNT     how walks and lookups ended
//       state NAME DIGEST|partial the state read (record store, mode 64)
//       records NAME COUNT        the records of that state
//       missing NAME TABLE        a table the file does not have
//       bad NAME WHAT             a wrong record, a loop, a refused file changed, ...
//     Exit 0 when it got to the end, whatever it found.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "alertdb.h"
#include "reliability/damaged/damaged_reference.h"
#include "reliability/harness_tables.h"

using namespace alertdb_test::damage;
using platform::FieldTemplate;

namespace {

// ------------------------------------------------------------ table classes

template <class Table>
class OpenTable : public Table {
 public:
  using Table::m_nFieldCount;
  using Table::m_nIdKey;
  using Table::m_pFieldTemplates;
  using Table::m_pszTableName;
  using Table::Table;
};

// One table class, opened, walked and read as a caller would.
class ClassView {
 public:
  virtual ~ClassView() = default;
  virtual std::string table() = 0;
  virtual std::uint32_t open() = 0;
  virtual void close() = 0;
  virtual std::vector<std::uint32_t> keys() = 0;
  virtual std::uint32_t idKey() = 0;
  virtual std::size_t idOffset() { return 0; }
  virtual std::uint32_t first(std::uint32_t key, std::string *record) = 0;
  virtual std::uint32_t next(std::string *record) = 0;
  virtual std::uint32_t retrieve(const std::string &id, std::string *record) = 0;
};

template <class Table>
class ClassViewOf : public ClassView {
  using Rec = harness::RecordOf<Table>;

 public:
  explicit ClassViewOf(const char *fileName) : fileName_(fileName) {}

  std::string table() override { return make()->m_pszTableName; }
  std::uint32_t open() override {
    table_ = make();
    return table_->DBOpen();
  }
  void close() override { table_.reset(); }
  std::vector<std::uint32_t> keys() override {
    std::vector<std::uint32_t> out;
    for (std::uint32_t i = 0; i < table_->m_nFieldCount; ++i) {
      std::uint32_t key = table_->m_pFieldTemplates[i].keyNumber;
      bool seen = false;
      for (std::uint32_t k : out) seen = seen || k == key;
      if (key != 0 && !seen) out.push_back(key);
    }
    return out;
  }
  std::uint32_t idKey() override { return table_->m_nIdKey; }
  std::uint32_t first(std::uint32_t key, std::string *record) override {
    return call(record,
                [&](Rec *rec) { return table_->DBAlertRecFindFirst(key, 0, nullptr, rec); });
  }
  std::uint32_t next(std::string *record) override {
    return call(record, [&](Rec *rec) { return table_->DBAlertRecFindNext(rec); });
  }
  std::uint32_t retrieve(const std::string &id, std::string *record) override {
    _GUID guid;
    std::memcpy(&guid, id.data(), sizeof guid);
    return call(record, [&](Rec *rec) { return table_->DBAlertRecRetrieve(&guid, rec); });
  }

 private:
  // One read into a zeroed record, which is handed back as bytes.
  template <class Read>
  static std::uint32_t call(std::string *record, Read &&read) {
    auto rec = std::make_unique<Rec>();
    std::memset(rec.get(), 0, sizeof(Rec));
    std::uint32_t r = read(rec.get());
    record->assign(reinterpret_cast<const char *>(rec.get()), sizeof(Rec));
    return r;
  }
  std::unique_ptr<OpenTable<Table>> make() {
    return fileName_ ? std::make_unique<OpenTable<Table>>(fileName_)
                     : std::make_unique<OpenTable<Table>>();
  }

  const char *fileName_;
  std::unique_ptr<OpenTable<Table>> table_;
};

template <class Table>
std::unique_ptr<ClassView> view(const char *fileName = nullptr) {
  return std::make_unique<ClassViewOf<Table>>(fileName);
}

template <class... T>
void addViews(std::vector<std::unique_ptr<ClassView>> &v, std::tuple<harness::TableType<T>...>) {
  (v.push_back(view<T>()), ...);
}

// The table classes whose default file (or the file named) is `file`.
std::vector<std::unique_ptr<ClassView>> classesOf(const std::string &file) {
  std::vector<std::unique_ptr<ClassView>> v;
  if (file == "AlEvntdb.dat") {
    addViews(v, harness::TypeList<CAlertEVENT_CLASSDB, CAlertEVENT_RESPDB>{});
    v.push_back(view<CAlertEVENT_LOGDB>("AlEvntdb.dat"));
  } else if (file == "KEPLogDB.dat") {
    v.push_back(view<CAlertEVENT_LOGDB>());
  } else if (file == "AlServdb.dat") {
    v.push_back(view<CAlertNtfyServDB>());
    addViews(v, harness::ServiceKindTables{});
  } else if (file == "kepuser.dat") {
    addViews(v, harness::TypeList<CAlertUsrDB, CAlertUsrInstServDB>{});
    addViews(v, harness::AddressTables{});
    v.push_back(view<CUsrDB>());
  }
  return v;
}

// ------------------------------------------------------------ the record store

// A table of an open store, bound to one buffer by its layout.
struct BoundTable {
  TableLayout layout;
  std::vector<FieldTemplate> templates;
  std::string image;

  explicit BoundTable(const TableLayout &l) : layout(l), image(l.imageSize(), '\0') {
    std::size_t at = 0;
    for (const FieldLayout &f : layout.fields) {
      FieldTemplate t{};
      t.keyNumber = f.key;
      t.attribute = f.attribute;
      t.size = t.sizeAgain = f.size;
      t.flags = f.flags;
      t.storage = image.data() + at;
      templates.push_back(t);
      at += f.size;
    }
  }
  std::uint32_t select(KEPDB *h) {
    return platform::SchmSetCurrentTbl(h, layout.name.c_str(), templates.data());
  }
};

const char *statusName(std::uint32_t status) { return AlertDBStatusName(status); }

bool isStoreStatus(std::uint32_t status) { return status <= platform::QDB_E_DAMAGED; }

bool isNamedStatus(std::uint32_t status) {
  return status == 0 || std::strcmp(AlertDBStatusName(status), "UNKNOWN") != 0;
}

std::string unhex(const std::string &text) {
  std::string out;
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    out += static_cast<char>(std::stoi(text.substr(i, 2), nullptr, 16));
  }
  return out;
}

// What one step found; printed when the step is done.
struct StepReport {
  std::string name;
  std::uint32_t read = 0;
  std::map<std::string, std::uint32_t> ends;
  std::vector<std::string> bad;

  void end(std::uint32_t status) { ++ends[statusName(status)]; }
  void print() const {
    std::printf("read %s %u\n", name.c_str(), read);
    for (const auto &[status, count] : ends) {
      std::printf("end %s %s %u\n", name.c_str(), status.c_str(), count);
    }
    for (const std::string &what : bad) std::printf("bad %s %s\n", name.c_str(), what.c_str());
  }
};

// The store's own records of one table, read through the same view as a table class.
class StoreView : public ClassView {
 public:
  StoreView(KEPDB *h, BoundTable &table) : h_(h), t_(table) {}
  std::string table() override { return t_.layout.name; }
  std::uint32_t open() override { return 0; }
  void close() override {}
  std::vector<std::uint32_t> keys() override { return t_.layout.keys(); }
  std::uint32_t idKey() override { return t_.layout.idKey; }
  std::size_t idOffset() override { return t_.layout.idOffset(); }
  std::uint32_t first(std::uint32_t key, std::string *record) override {
    key_ = key;
    return read(platform::QDBRecordSkipAndRead(h_, key, platform::kSkipFirst), record);
  }
  std::uint32_t next(std::string *record) override {
    return read(platform::QDBRecordSkipAndRead(h_, key_, platform::kSkipNext), record);
  }
  std::uint32_t retrieve(const std::string &id, std::string *record) override {
    return read(platform::QDBRecordFindAndRead(h_, t_.layout.idKey, id.data(), 1, 16), record);
  }

 private:
  std::uint32_t read(std::uint32_t r, std::string *record) {
    *record = t_.image;
    return r;
  }

  KEPDB *h_;
  BoundTable &t_;
  std::uint32_t key_ = 0;
};

// Walks a table by each key and looks each reference ID up; every record read
// must be a version of the reference. `kind` ("store" or "class") says who
// answered and which statuses are known. The hashes of the walk by object ID
// go to `byId`; false when that walk did not reach the end.
bool readTable(ClassView &table, const char *kind, const Versions &versions, StepReport &report,
               std::vector<std::uint64_t> *byId = nullptr) {
  bool store = std::strcmp(kind, "store") == 0;
  bool (*known)(std::uint32_t) = store ? isStoreStatus : isNamedStatus;
  const std::string name = std::string(kind) + " " + table.table();
  bool complete = true;
  std::size_t limit = versions.ids.size() + 2;
  std::string record;
  for (std::uint32_t key : table.keys()) {
    std::set<std::string> seen;
    std::uint32_t r = table.first(key, &record);
    for (; r == 0; r = table.next(&record)) {
      std::uint64_t hash = bytesHash(record.data(), record.size());
      std::string id = hexOf(record.data() + table.idOffset(), 16);
      if (!versions.holds(id, hash)) {
        report.bad.push_back(name + " key " + std::to_string(key) + " gave record " + id +
                             " that was never written so");
        break;
      }
      if (!seen.insert(id).second || seen.size() > limit) {
        report.bad.push_back(name + " key " + std::to_string(key) + " gave record " + id +
                             " twice");
        break;
      }
      ++report.read;
      if (key == table.idKey() && byId) byId->push_back(hash);
    }
    if (!known(r)) report.bad.push_back(name + " walk ended with status " + std::to_string(r));
    report.end(r);
    if (key == table.idKey() && r != platform::QDB_E_NOTFOUND) complete = false;
  }
  const char *lookup = store ? " lookup" : " retrieve";
  for (const std::string &idHex : versions.ids) {
    std::uint32_t r = table.retrieve(unhex(idHex), &record);
    if (r == 0) {
      if (!versions.holds(idHex, bytesHash(record.data(), record.size()))) {
        report.bad.push_back(name + lookup + " of " + idHex + " gave bytes never written for it");
      } else {
        ++report.read;
      }
    } else if (!known(r)) {
      report.bad.push_back(name + lookup + " ended with status " + std::to_string(r));
    }
    report.end(r);
  }
  return complete;
}

// ------------------------------------------------------------ modes

// Prints each record of the walk by object ID; the status that ended it.
std::uint32_t dumpTable(ClassView &table, const char *kind,
                        std::vector<std::uint64_t> *hashes = nullptr) {
  std::string record;
  std::uint32_t r = table.first(table.idKey(), &record);
  for (; r == 0; r = table.next(&record)) {
    std::uint64_t hash = bytesHash(record.data(), record.size());
    if (hashes) hashes->push_back(hash);
    std::printf("%s %s %s %s\n", kind, table.table().c_str(),
                hexOf(record.data() + table.idOffset(), 16).c_str(), hashText(hash).c_str());
  }
  return r;
}

int dump(const std::string &dir, const std::string &file) {
  std::string path = dir + "/" + file;
  KEPDB *h = platform::QDBInit(0, path.c_str(), platform::kOpenExisting, 1);
  if (!h) {
    std::printf("refused\n");
    return 2;
  }
  std::vector<std::string> names;
  if (platform::QDBTableNames(h, &names) != 0) return 2;
  std::map<std::string, std::vector<std::uint64_t>> state;
  for (const std::string &name : names) {
    platform::StoreTableInfo info;
    if (platform::QDBTableInfo(h, name.c_str(), &info) != 0) return 2;
    TableLayout layout;
    layout.name = name;
    layout.idKey = info.idKey;
    for (const auto &f : info.fields) {
      layout.fields.push_back({f.keyNumber, f.attribute, f.size, f.flags});
    }
    std::printf("%s\n", layout.line().c_str());
    BoundTable table(layout);
    if (table.select(h) != 0) return 2;
    StoreView view(h, table);
    if (dumpTable(view, "store", &state[name]) != platform::QDB_E_NOTFOUND) return 2;
  }
  platform::QDBDone(h);
  std::printf("state %s\n", hashText(stateDigest(state)).c_str());
  for (auto &table : classesOf(file)) {
    if (table->open() != 0) return 2;
    std::uint32_t r = dumpTable(*table, "class");
    table->close();
    if (r != ALRT_E_NOTFOUND) return 2;
  }
  return 0;
}

int check(const std::string &dir, const std::string &file, const std::string &referencePath) {
  Reference reference;
  if (!Reference::load(referencePath, &reference)) return 2;
  const std::string path = dir + "/" + file;
  if (!std::filesystem::exists(path)) return 2;
  const FilePair variant = FilePair::read(path);
  auto unchanged = [&] { return FilePair::read(path).sameBytes(variant); };

  const std::pair<const char *, std::uint32_t> modes[] = {{"store64", platform::kOpenExisting},
                                                          {"store65", platform::kOpenRecover},
                                                          {"store0", platform::kOpenCreate}};
  for (const auto &[stepName, mode] : modes) {
    StepReport report;
    report.name = stepName;
    variant.write(path);
    KEPDB *h = platform::QDBInit(0, path.c_str(), mode, 1);
    if (!h) {
      std::printf("step %s refused -\n", stepName);
      if (!unchanged()) report.bad.push_back("the refused file was changed");
      report.print();
      continue;
    }
    std::printf("step %s opened -\n", stepName);
    std::map<std::string, std::vector<std::uint64_t>> state;
    bool complete = true;
    for (const auto &[name, layout] : reference.layouts) {
      BoundTable table(layout);
      std::uint32_t r = table.select(h);
      if (r != 0) {
        if (!isStoreStatus(r)) {
          report.bad.push_back("selecting " + name + " gave status " + std::to_string(r));
        }
        report.end(r);
        // A table the file does not have is left out of the state; one that
        // cannot be read makes it partial.
        if (r == platform::QDB_E_NOTABLE) {
          std::printf("missing %s %s\n", stepName, name.c_str());
        } else {
          complete = false;
        }
        continue;
      }
      StoreView view(h, table);
      complete = readTable(view, "store", reference.store[name], report, &state[name]) && complete;
    }
    platform::QDBDone(h);
    if (mode == platform::kOpenExisting) {
      std::size_t records = 0;
      for (const auto &[name, hashes] : state) records += hashes.size();
      std::printf("state %s %s\n", stepName,
                  complete ? hashText(stateDigest(state)).c_str() : "partial");
      std::printf("records %s %zu\n", stepName, records);
    }
    report.print();
  }

  for (auto &table : classesOf(file)) {
    StepReport report;
    report.name = "class:" + table->table();
    variant.write(path);
    std::uint32_t r = table->open();
    if (r != 0 && r != ALRT_E_ALTOPEN) {
      table->close();
      std::printf("step %s refused %s\n", report.name.c_str(), statusName(r));
      if (!isNamedStatus(r)) report.bad.push_back("open gave status " + std::to_string(r));
      if (!unchanged()) report.bad.push_back("the refused file was changed");
      report.print();
      continue;
    }
    std::printf("step %s opened %s\n", report.name.c_str(), statusName(r));
    readTable(*table, "class", reference.classes[table->table()], report);
    table->close();
    report.print();
  }
  return 0;
}

}  // namespace

int main(int argc, char **argv) {
  std::setvbuf(stdout, nullptr, _IOFBF, 1 << 16);
  std::string command = argc > 1 ? argv[1] : "";
  int status = 1;
  if (command == "dump" && argc == 4) {
    status = dump(argv[2], argv[3]);
  } else if (command == "check" && argc == 5) {
    status = check(argv[2], argv[3], argv[4]);
  }
  std::fflush(stdout);
  return status;
}
