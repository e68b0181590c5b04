// Damaged data files: real files of the library, made through its table
// classes with a live write-ahead log beside them, cut short at many lengths
// and with bytes changed at many places. For each variant, in separate
// processes under a time limit: `alertdb check` changes nothing and names the
// damage, or the file reads as a state that was committed; every open mode
// of the record store and every table class refuses it without changing a
// byte, or reads only records that were written so; `alertdb recover` saves
// only such records and keeps the original whole.
//
// CI runs a sample of the variants of each file; ALERTDB_DAMAGE_FULL=1 runs
// them all, ALERTDB_DAMAGE_SAMPLE=N a sample of N, ALERTDB_DAMAGE_SEED=S
// another choice of places, ALERTDB_DAMAGE_KEEP=DIR keeps the bytes of each
// variant that fails in DIR. Each run prints its figures.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "reliability/damaged/damaged_data_builders.h"
#include "reliability/damaged/damaged_reference.h"
#include "reliability/damaged/damaged_variants.h"
#include "support/bounded_run.h"
#include "support/test_environment.h"
#include "support/tool_run.h"

namespace alertdb_test {
namespace {

using namespace damage;
namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t kDefaultSample = 12;
constexpr unsigned kChildSeconds = 120;
#else
constexpr std::size_t kDefaultSample = 48;
constexpr unsigned kChildSeconds = 30;
#endif
constexpr int kBatches = 5;

std::size_t sampleSize() {
  const char *full = std::getenv("ALERTDB_DAMAGE_FULL");
  if (full && std::string(full) == "1") return 0;
  const char *sample = std::getenv("ALERTDB_DAMAGE_SAMPLE");
  long n = sample ? std::strtol(sample, nullptr, 10) : 0;
  return n > 0 ? static_cast<std::size_t>(n) : kDefaultSample;
}

std::uint64_t sampleSeed() {
  const char *seed = std::getenv("ALERTDB_DAMAGE_SEED");
  return seed ? std::strtoull(seed, nullptr, 10) : 12;
}

std::string readerPath() {
  return std::string(ALERTDB_TEST_BINARY_DIR) + "/programs/damaged_file_reader";
}

// What the reader program printed for one file.
struct ReaderReport {
  std::map<std::string, std::string> steps;  // step -> "opened" / "refused"
  std::map<std::string, std::string> statuses;
  std::string state;
  std::size_t records = 0;
  std::size_t read = 0;
  std::map<std::string, std::size_t> ends;
  std::vector<std::string> bad;
  std::vector<std::string> missing;  // tables the file does not have (mode 64)

  static ReaderReport parse(const std::string &out) {
    ReaderReport r;
    std::istringstream in(out);
    std::string line;
    while (std::getline(in, line)) {
      std::istringstream words(line);
      std::string kind, step, value;
      words >> kind >> step;
      if (kind == "step") {
        words >> r.steps[step] >> r.statuses[step];
      } else if (kind == "state") {
        words >> r.state;
      } else if (kind == "records") {
        words >> r.records;
      } else if (kind == "read") {
        std::size_t n = 0;
        words >> n;
        r.read += n;
      } else if (kind == "end") {
        std::size_t n = 0;
        words >> value >> n;
        r.ends[value] += n;
      } else if (kind == "missing") {
        words >> value;
        if (step == "store64") r.missing.push_back(value);
      } else if (kind == "bad") {
        std::getline(words, value);
        r.bad.push_back(step + value);
      }
    }
    return r;
  }
  bool opened() const {
    auto it = steps.find("store64");
    return it != steps.end() && it->second == "opened";
  }
};

// The intact file: closed after its first records, then after each batch of
// changes with its log, copied while the tables were open.
struct Pristine {
  std::string file;
  FilePair closed;
  std::vector<FilePair> commits;
  std::vector<std::string> digests;  // the closed file's state, then each commit's
  std::string referencePath;
  std::size_t records = 0;  // at the last commit
  std::size_t pageSize = 0;
  std::size_t logFrames = 0;
  std::size_t tableCount = 0;
  const FilePair &live() const { return commits.back(); }
};

// What a sweep found, for the assertions and the figures.
struct Tally {
  std::size_t available = 0, tried = 0, refused = 0, opened = 0, reads = 0;
  std::size_t detected = 0, unchangedContent = 0, cutBack = 0, commitsLost = 0;
  std::size_t recovered = 0, saved = 0, lost = 0, recoverRefused = 0;
  std::map<std::string, std::pair<std::size_t, std::size_t>> categories;  // tried, detected
  std::map<std::string, std::size_t> classRefusals;                       // by status
  std::vector<std::string> failures;
};

class DamagedDataFilesTest : public IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    variantDir_ = dataPath("variant");
    scratchDir_ = dataPath("scratch");
  }

  // Puts exactly `pair` (and nothing else) in `dir` under the name `file`.
  static void materialize(const std::string &dir, const std::string &file, const FilePair &pair) {
    fs::remove_all(dir);
    fs::create_directories(dir);
    pair.write(dir + "/" + file);
  }

  BoundedRun runReader(const std::vector<std::string> &args, const std::string &dir) {
    BoundedRunOptions options;
    options.seconds = kChildSeconds;
    options.env = {{"ALERTDB_DATA_DIR", dir}, {"ALERTDB_CONSOLE_DIR", dir}};
    return runBounded(readerPath(), args, options);
  }

  BoundedRun runToolIn(const std::vector<std::string> &args, const std::string &dir) {
    BoundedRunOptions options;
    options.seconds = kChildSeconds;
    options.env = {{"ALERTDB_DATA_DIR", dir}};
    return runBounded(toolPath(), args, options);
  }

  // The reader's dump of `pair`.
  std::string dump(const std::string &file, const FilePair &pair) {
    materialize(scratchDir_, file, pair);
    BoundedRun run = runReader({"dump", scratchDir_, file}, scratchDir_);
    EXPECT_FALSE(run.sanitizerReport()) << run.err;
    EXPECT_EQ(run.exitCode, 0) << "dump of the intact " << file << ": " << run.ending() << "\n"
                               << run.out << run.err;
    return run.out;
  }

  // The records the table classes read in `dumpText` are those written.
  static void expectWritten(const std::string &dumpText, const WrittenRecords &written,
                            const std::string &when) {
    std::map<std::string, std::map<std::string, std::uint64_t>> read;
    std::istringstream in(dumpText);
    std::string kind, table, id, hash;
    for (std::string line; std::getline(in, line);) {
      std::istringstream words(line);
      if (words >> kind >> table >> id >> hash && kind == "class") {
        read[table][id] = std::stoull(hash, nullptr, 16);
      }
    }
    for (const auto &[name, records] : written.tables()) {
      EXPECT_EQ(read[name].size(), records.size()) << name << " " << when;
      for (const auto &[recordId, hashes] : records) {
        auto found = read[name].find(recordId);
        ASSERT_NE(found, read[name].end()) << name << " " << recordId << " " << when;
        EXPECT_TRUE(found->second == hashes.given || found->second == hashes.left)
            << name << " " << recordId << " reads back otherwise than written, " << when;
      }
    }
  }

  // Writes the file through `builder`, keeps its bytes at each commit, and
  // the reference: every version of every record, from dumps of them all.
  Pristine make(DataFileBuilder &builder) {
    Pristine p;
    p.file = builder.file();
    std::vector<WrittenRecords> states(1);
    builder.fill(states[0]);
    if (HasFatalFailure()) return p;
    // Data file names go without regard to case: "KepUser.dat" may have
    // been made first.
    std::string path = dataPath(p.file);
    for (const auto &entry : fs::directory_iterator(dataDir())) {
      std::string name = entry.path().filename().string();
      if (strcasecmp(name.c_str(), p.file.c_str()) == 0) path = entry.path().string();
    }
    p.closed.file = readFile(path);
    EXPECT_FALSE(fileExists(path + "-wal")) << "a closed file leaves no log";
    builder.open();
    for (int batch = 1; batch <= kBatches && !HasFatalFailure(); ++batch) {
      states.push_back(states.back());
      builder.change(batch, states.back());
      // Copied while the tables are open: the log holds the batches.
      p.commits.push_back(FilePair::read(path));
    }
    builder.close();
    if (HasFatalFailure()) return p;
    EXPECT_TRUE(p.live().log && p.live().log->size() > 32) << "the live log holds frames";

    std::string reference;
    for (std::size_t i = 0; i < states.size(); ++i) {
      std::string text = dump(p.file, i == 0 ? p.closed : p.commits[i - 1]);
      std::string when = i == 0 ? "when closed" : "at commit " + std::to_string(i);
      expectWritten(text, states[i], when);
      std::istringstream in(text);
      std::string line, digest;
      while (std::getline(in, line)) {
        if (line.rfind("state ", 0) == 0) digest = line.substr(6);
      }
      EXPECT_FALSE(digest.empty()) << when;
      if (!p.digests.empty()) {
        EXPECT_NE(digest, p.digests.back()) << "the batch changed nothing";
      }
      p.digests.push_back(digest);
      reference += text;
    }
    p.records = states.back().count();
    Reference parsed;
    parsed.addText(reference);
    p.tableCount = parsed.layouts.size();
    p.referencePath = dataPath(p.file + ".reference");
    FilePair::writeBytes(p.referencePath, reference);
    return p;
  }

  void runVariant(const Pristine &p, const Variant &v, Tally &t) {
    FilePair damaged = applyVariant(v, p.closed, p.live(), p.pageSize);
    auto fail = [&](const std::string &what) {
      t.failures.push_back(v.category + " | " + v.what + ": " + what);
      // The bytes of a failing variant, to look at or to rerun.
      const char *keep = std::getenv("ALERTDB_DAMAGE_KEEP");
      std::string dir =
          keep ? std::string(keep) + "/" + p.file + "." + std::to_string(t.tried) : "";
      if (keep && !fs::exists(dir)) {
        materialize(dir, p.file, damaged);
        FilePair::writeBytes(dir + "/variant.txt",
                             v.category + " | " + v.what + "\n" + what + "\n");
        fs::copy_file(p.referencePath, dir + "/reference.txt");
      }
    };
    ++t.tried;
    ++t.categories[v.category].first;
    const std::string path = variantDir_ + "/" + p.file;

    materialize(variantDir_, p.file, damaged);
    BoundedRun check = runToolIn({"check", p.file, "--format", "json"}, variantDir_);
    if ((check.exitCode != 0 && check.exitCode != 1) || check.sanitizerReport()) {
      return fail("check " + check.ending() + ": " + check.err);
    }
    if (!FilePair::read(path).sameBytes(damaged)) fail("check changed the file or its log");
    nlohmann::json verdict = nlohmann::json::parse(check.out, nullptr, false);
    if (verdict.is_discarded() || verdict.size() != 1) return fail("check printed " + check.out);
    const nlohmann::json &entry = verdict[0];

    BoundedRun reading = runReader({"check", variantDir_, p.file, p.referencePath}, variantDir_);
    if (reading.exitCode != 0 || reading.sanitizerReport()) {
      return fail("reading it " + reading.ending() + ": " + reading.err.substr(0, 2000));
    }
    ReaderReport r = ReaderReport::parse(reading.out);
    for (const std::string &bad : r.bad) fail(bad);
    r.opened() ? ++t.opened : ++t.refused;
    t.reads += r.read;
    for (const auto &[step, how] : r.steps) {
      if (how == "refused" && step.rfind("class:", 0) == 0) ++t.classRefusals[r.statuses[step]];
    }

    if (check.exitCode == 0) {
      // Nothing found: then what the file reads as must be a committed state.
      auto at = std::find(p.digests.begin(), p.digests.end(), r.state);
      if (!r.opened()) return fail("check calls it sound, but the normal open refuses it");
      if (at == p.digests.end() || (!v.live && at != p.digests.begin())) {
        return fail("check calls it sound, but it reads as no state that was committed (" +
                    r.state + ")");
      }
      std::size_t commit = static_cast<std::size_t>(at - p.digests.begin());
      // Only a log cut short or changed may lose its last commits unseen, as
      // a crash while it was written would; damage to the file may not.
      if (v.live && !v.inLog && commit != p.digests.size() - 1) {
        return fail("check calls it sound, but the commits after " + std::to_string(commit) +
                    " are gone");
      }
      if (v.category == "none" && commit != p.digests.size() - 1) {
        return fail("the intact file reads as commit " + std::to_string(commit));
      }
      if (v.live && commit != p.digests.size() - 1) {
        ++t.cutBack;
        t.commitsLost += p.digests.size() - 1 - commit;
      } else if (v.category != "none") {
        ++t.unchangedContent;
      }
      return;
    }
    if (v.category == "none") return fail("check calls the intact file damaged: " + check.out);
    ++t.detected;
    ++t.categories[v.category].second;
    if (!entry.contains("problems") || entry["problems"].empty()) {
      fail("check exits 1 but names no problem: " + check.out);
    }
    for (const auto &problem : entry.value("problems", nlohmann::json::array())) {
      if (problem.value("problem", "").empty()) fail("a problem without a text: " + check.out);
    }
    recover(p, damaged, entry.value("status", ""), t, fail);
  }

  template <class Fail>
  void recover(const Pristine &p, const FilePair &damaged, const std::string &status, Tally &t,
               const Fail &fail) {
    const std::string path = variantDir_ + "/" + p.file;
    materialize(variantDir_, p.file, damaged);
    BoundedRun run = runToolIn({"recover", p.file, "--format", "json"}, variantDir_);
    if (run.sanitizerReport()) return fail("recover " + run.ending());
    if (run.exitCode == 1) {
      // Refused: nothing is changed, nothing is left behind.
      ++t.recoverRefused;
      if (!FilePair::read(path).sameBytes(damaged)) fail("a refused recover changed the file");
      for (const auto &e : fs::directory_iterator(variantDir_)) {
        std::string name = e.path().filename().string();
        if (name != p.file && name != p.file + "-wal" && name != p.file + "-shm") {
          fail("a refused recover left " + name);
        }
      }
      if (status == "damaged" && run.err.find("salvaged") == std::string::npos) {
        fail("recover refused a damaged store: " + run.err);
      }
      return;
    }
    if (run.exitCode != 0) return fail("recover " + run.ending() + ": " + run.err);
    if (status != "damaged") fail("recover salvaged a file that check calls " + status);
    nlohmann::json report = nlohmann::json::parse(run.out, nullptr, false);
    if (report.is_discarded()) return fail("recover printed " + run.out);
    std::string copy = variantDir_ + "/" + report.value("damagedCopy", "");
    if (readFile(copy) != damaged.file) fail("the damaged original was not kept whole");
    if (damaged.log && readFile(copy + "-wal") != *damaged.log) {
      fail("the damaged original's log was not kept whole");
    }
    std::size_t saved = report.value("saved", 0u), lost = report.value("lost", 0u);

    BoundedRun reading = runReader({"check", variantDir_, p.file, p.referencePath}, variantDir_);
    if (reading.exitCode != 0 || reading.sanitizerReport()) {
      return fail("reading the recovered file " + reading.ending());
    }
    ReaderReport r = ReaderReport::parse(reading.out);
    for (const std::string &bad : r.bad) fail("recovered: " + bad);
    if (!r.opened() || r.state == "partial") {
      return fail("the recovered file does not read whole: " + reading.out.substr(0, 2000));
    }
    // A table is left out only when its catalog entry was lost, and recover
    // says so; a store without any table is no salvage.
    for (const std::string &table : r.missing) {
      bool named = false;
      for (const auto &problem : report.value("problems", nlohmann::json::array())) {
        named = named || problem.value("table", nlohmann::json()) == table;
      }
      if (!named) fail("the recovered file lacks table " + table + " and recover does not say why");
    }
    if (r.missing.size() == p.tableCount) {
      fail("recover put a store without any table in the file's place, saying " +
           std::to_string(saved) + " saved, " + std::to_string(lost) + " lost");
    }
    if (r.records != saved) {
      fail("recover says " + std::to_string(saved) + " saved, the new file holds " +
           std::to_string(r.records));
    }
    BoundedRun recheck = runToolIn({"check", p.file}, variantDir_);
    if (recheck.exitCode != 0 || recheck.sanitizerReport()) {
      fail("the recovered file fails check: " + recheck.ending() + recheck.out);
    }
    ++t.recovered;
    t.saved += saved;
    t.lost += lost;
  }

  void sweep(DataFileBuilder &&builder) {
    Pristine p = make(builder);
    if (HasFatalFailure() || p.digests.size() != kBatches + 1) return;
    PageMap closedPages = mapPages({p.closed.file, std::nullopt}, scratchDir_);
    PageMap livePages = mapPages({p.live().file, std::nullopt}, scratchDir_);
    PageMap logPages = mapPages(p.live(), scratchDir_);
    ASSERT_GT(closedPages.pageSize, 0u);
    p.pageSize = closedPages.pageSize;
    p.logFrames = (p.live().log->size() - 32) / (24 + p.pageSize);

    std::uint64_t seed = sampleSeed();
    std::vector<Variant> all =
        allVariants(p.closed, p.live(), closedPages, livePages, logPages, seed);
    std::vector<Variant> chosen = sampleVariants(all, sampleSize(), seed);
    Tally t;
    t.available = all.size();
    for (const Variant &v : chosen) runVariant(p, v, t);
    report(p, t, seed);

    EXPECT_EQ(t.tried, chosen.size());
    std::string failures;
    for (std::size_t i = 0; i < t.failures.size() && i < 25; ++i) failures += t.failures[i] + "\n";
    EXPECT_TRUE(t.failures.empty()) << t.failures.size() << " failures in " << p.file << ":\n"
                                    << failures;
  }

  static void report(const Pristine &p, const Tally &t, std::uint64_t seed) {
    std::printf(
        "[damaged files] %s (%zu records in %zu pages, %zu log frames over %d commits): "
        "%zu of %zu variants tried (seed %llu)\n",
        p.file.c_str(), p.records, p.closed.file.size() / std::max<std::size_t>(p.pageSize, 1),
        p.logFrames, kBatches, t.tried, t.available, static_cast<unsigned long long>(seed));
    std::printf("  open (mode 64): %zu refused, %zu opened; %zu reads verified, none wrong\n",
                t.refused, t.opened, t.reads);
    std::printf(
        "  check: %zu detected; not detected %zu, each proven harmless: %zu with every record "
        "as committed (unused bytes, or a page the log replaces), %zu read as an earlier commit "
        "(the log cut back, %zu commits lost in all)\n",
        t.detected, t.tried - t.detected, t.unchangedContent, t.cutBack, t.commitsLost);
    std::printf("  recover: %zu salvaged (%zu records saved, %zu lost), %zu refused\n", t.recovered,
                t.saved, t.lost, t.recoverRefused);
    std::string statuses;
    for (const auto &[status, n] : t.classRefusals)
      statuses += " " + status + " " + std::to_string(n);
    std::printf("  table class opens refused with:%s\n",
                statuses.empty() ? " -" : statuses.c_str());
    for (const auto &[category, counts] : t.categories) {
      std::printf("    %-55s %4zu tried, %4zu detected\n", category.c_str(), counts.first,
                  counts.second);
    }
    std::fflush(stdout);
  }

  // The first phase of `builder`'s file, then `statements` run on it behind
  // the library's back (changing `changes` rows, when given).
  WrittenRecords filledAndAltered(DataFileBuilder &builder, const std::string &statements,
                                  int changes = -1) {
    WrittenRecords written;
    builder.fill(written);
    EXPECT_FALSE(HasFatalFailure());
    if (statements.empty()) return written;
    sqlite3 *db = nullptr;
    EXPECT_EQ(sqlite3_open(dataPath(builder.file()).c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK);
    if (changes >= 0) {
      EXPECT_EQ(sqlite3_changes(db), changes);
    }
    sqlite3_close(db);
    return written;
  }

  // What `alertdb recover --format json` says of `file`, which it salvaged.
  nlohmann::json recoverReport(const std::string &file) {
    BoundedRun run = runToolIn({"recover", file, "--format", "json"}, dataDir());
    EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
    nlohmann::json report = nlohmann::json::parse(run.out, nullptr, false);
    EXPECT_FALSE(report.is_discarded()) << run.out;
    return report.is_discarded() ? nlohmann::json::object() : report;
  }

  std::string variantDir_;
  std::string scratchDir_;
};

TEST_F(DamagedDataFilesTest, EventClassesLinksAndALogInAlEvntdb) { sweep(EventFileBuilder()); }

TEST_F(DamagedDataFilesTest, TheMirroredEventLogInKEPLogDB) { sweep(LogFileBuilder(dataDir())); }

TEST_F(DamagedDataFilesTest, TheServiceCatalogueAndEveryKindInAlServdb) {
  sweep(ServiceFileBuilder());
}

TEST_F(DamagedDataFilesTest, UsersInstancesAddressesAndUserObjectsInKepuser) {
  sweep(UserFileBuilder());
}

// The reader's comparison can fail: against a reference that lacks some
// records' versions, the intact file's reads of them are reported.
TEST_F(DamagedDataFilesTest, ReadsOfRecordsNeverWrittenSoAreReported) {
  LogFileBuilder builder(dataDir());
  filledAndAltered(builder, "");
  ASSERT_FALSE(HasFatalFailure());
  FilePair intact{readFile(dataPath("KEPLogDB.dat")), std::nullopt};
  std::string full = dump("KEPLogDB.dat", intact);
  std::string reference, storeDropped, classDropped;
  std::istringstream in(full);
  for (std::string line; std::getline(in, line);) {
    // One record's store image, another's class record, left out.
    if (storeDropped.empty() && line.rfind("store ", 0) == 0) {
      storeDropped = line;
    } else if (classDropped.empty() && line.rfind("class ", 0) == 0 &&
               line.substr(6, 42) != storeDropped.substr(6, 42)) {
      classDropped = line;
    } else {
      reference += line + "\n";
    }
  }
  ASSERT_FALSE(storeDropped.empty());
  ASSERT_FALSE(classDropped.empty());
  FilePair::writeBytes(dataPath("reference.txt"), reference);
  materialize(variantDir_, "KEPLogDB.dat", intact);
  BoundedRun run =
      runReader({"check", variantDir_, "KEPLogDB.dat", dataPath("reference.txt")}, variantDir_);
  ASSERT_EQ(run.exitCode, 0) << run.ending() << run.err;
  ReaderReport r = ReaderReport::parse(run.out);
  std::string storeId = storeDropped.substr(6 + std::string("EVENT_LOG ").size(), 32);
  std::string classId = classDropped.substr(6 + std::string("EVENT_LOG ").size(), 32);
  int storeBad = 0, classBad = 0;
  for (const std::string &bad : r.bad) {
    if (bad.find("store EVENT_LOG") != std::string::npos &&
        bad.find(storeId) != std::string::npos) {
      ++storeBad;
    }
    if (bad.find("class EVENT_LOG") != std::string::npos &&
        bad.find(classId) != std::string::npos) {
      ++classBad;
    }
  }
  EXPECT_GT(storeBad, 0) << run.out;
  EXPECT_GT(classBad, 0) << run.out;
  EXPECT_EQ(static_cast<std::size_t>(storeBad + classBad), r.bad.size()) << run.out;
}

// Without its field list no record of a file can be told apart: recover
// must say that nothing can be saved and leave the file where it is, not put
// a store without any table in its place.
TEST_F(DamagedDataFilesTest, RecoverLeavesAFileWhoseRecordsCannotBeToldApartInPlace) {
  LogFileBuilder builder(dataDir());
  filledAndAltered(builder, "DELETE FROM alertdb_fields");
  std::string path = dataPath("KEPLogDB.dat"), before = readFile(path);

  BoundedRun run = runToolIn({"recover", "KEPLogDB.dat"}, dataDir());
  EXPECT_EQ(run.exitCode, 1) << run.out << run.err;
  EXPECT_NE(run.err.find("could be salvaged"), std::string::npos) << run.err;
  EXPECT_TRUE(readFile(path) == before) << "the file stays in its place as it was";
  for (const auto &entry : fs::directory_iterator(dataDir())) {
    EXPECT_EQ(entry.path().filename().string().find(".damaged-"), std::string::npos)
        << entry.path();
  }
}

// A catalog that lost a table's entry while the table and its field list
// are still there disagrees with itself: every open mode refuses the file,
// unchanged, instead of opening it without the table (whose open would then
// say it is missing, and invite the caller to create it afresh). Recover
// cannot save that table, but says that its records are lost rather than
// leave it out unmentioned.
TEST_F(DamagedDataFilesTest, AStoreWhoseCatalogLostATableIsRefusedAndItsRecordsCountedLost) {
  EventFileBuilder builder;
  WrittenRecords written =
      filledAndAltered(builder, "DELETE FROM alertdb_tables WHERE name='EVENT_RESP'");
  std::string path = dataPath("AlEvntdb.dat"), before = readFile(path);
  for (std::uint32_t mode :
       {platform::kOpenExisting, platform::kOpenRecover, platform::kOpenCreate}) {
    KEPDB *h = platform::QDBInit(0, path.c_str(), mode, 1);
    EXPECT_EQ(h, nullptr) << "mode " << mode;
    if (h) platform::QDBDone(h);
    EXPECT_TRUE(readFile(path) == before) << "mode " << mode << " changed the file";
  }
  CAlertEVENT_RESPDB links;
  EXPECT_EQ(links.DBOpen(), ALRT_E_INITFAILED);

  nlohmann::json report = recoverReport("AlEvntdb.dat");
  EXPECT_EQ(report["lost"], written.tables().at(tableName<CAlertEVENT_RESPDB>()).size()) << report;
  bool named = false;
  for (const auto &problem : report["problems"]) named = named || problem["table"] == "EVENT_RESP";
  EXPECT_TRUE(named) << report;
}

// A catalog entry whose key numbers no longer fit the table's columns
// cannot read the table's rows: recover counts them lost and leaves the
// table out, rather than make it again empty with the damaged layout.
TEST_F(DamagedDataFilesTest, RecoverLeavesOutATableItsCatalogEntryCannotRead) {
  EventFileBuilder builder;
  WrittenRecords written = filledAndAltered(builder,
                                            "UPDATE alertdb_fields SET key_number=4294967288 "
                                            "WHERE table_name='EVENT_CLASS' AND key_number=7",
                                            1);
  nlohmann::json report = recoverReport("AlEvntdb.dat");
  bool counted = false;
  for (const auto &table : report["tables"]) {
    if (table["name"] != "EVENT_CLASS") continue;
    counted = true;
    EXPECT_EQ(table["lost"], written.tables().at(tableName<CAlertEVENT_CLASSDB>()).size())
        << report;
  }
  EXPECT_TRUE(counted) << report;
  // The new store serves the other tables, and takes the lost one afresh.
  CAlertEVENT_RESPDB links;
  EXPECT_EQ(links.DBOpen(), 0u);
  CAlertEVENT_CLASSDB eventClasses;
  EXPECT_EQ(OpenOrCreate(eventClasses), 0u);
}

// Whatever a page of the records holds, and wherever the file is cut, check
// and recover come to an end: a scan that gives back a row before the one it
// was asked to start at must not send them round again.
TEST_F(DamagedDataFilesTest, CheckAndRecoverEndWhateverARecordPageHolds) {
  {
    harness::Exposed<CAlertEVENT_LOGDB> log;
    ASSERT_EQ(log.DBCreate(), 0u);
    RecordMaker maker(0x4EAD);
    ASSERT_EQ(DBFileLock(log.handle()), 0u);
    for (std::uint32_t n = 0; n < 300; ++n) {
      auto entry = std::make_unique<ALRTEVENT_LOGREC>();
      maker.fill(*entry, n % 60 == 17);
      entry->KEPOID.Data1 = n + 1;  // fixed IDs make the same file every run
      _GUID id{};
      ASSERT_EQ(log.DBAlertRecAdd(entry.get(), &id), 0u);
    }
    ASSERT_EQ(DBFileUnlock(log.handle()), 0u);
  }
  FilePair closed{readFile(dataPath("KEPLogDB.dat")), std::nullopt};
  PageMap pages = mapPages(closed, scratchDir_);
  ASSERT_GT(pages.pageSize, 0u);
  std::vector<Variant> variants;
  for (const auto &[page, role] : pages.roles) {
    if (role != PageRole::Records || pages.overflow[page]) continue;
    // Over the cell count, where the cells start and the first pointers.
    for (std::size_t at = 1; at < 8; at += 2) {
      Variant v;
      v.offset = (page - 1) * pages.pageSize + at;
      v.pattern = 4;  // 16 random bytes
      v.seed = page * 8 + at;
      v.what = "page " + std::to_string(page) + " changed at " + std::to_string(at);
      variants.push_back(v);
    }
    Variant cut;
    cut.cut = true;
    cut.offset = (page - 1) * pages.pageSize + pages.pageSize / 2;
    cut.what = "cut in page " + std::to_string(page);
    variants.push_back(cut);
  }
  std::vector<std::string> hung;
  for (const Variant &v : variants) {
    // A few hangs tell enough; each costs its time limit.
    if (hung.size() >= 4) break;
    FilePair damaged = applyVariant(v, closed, closed, pages.pageSize);
    for (const char *command : {"check", "recover"}) {
      materialize(variantDir_, "KEPLogDB.dat", damaged);
      BoundedRunOptions options;
      options.seconds = kChildSeconds / 3;
      options.env = {{"ALERTDB_DATA_DIR", variantDir_}};
      BoundedRun run = runBounded(toolPath(), {command, "KEPLogDB.dat"}, options);
      if (run.timedOut) hung.push_back(std::string(command) + ", " + v.what);
      EXPECT_TRUE(run.timedOut || run.exitCode == 0 || run.exitCode == 1)
          << command << ", " << v.what << ": " << run.ending();
    }
  }
  EXPECT_GT(variants.size(), 50u);
  std::string all;
  for (const std::string &h : hung) all += h + "\n";
  EXPECT_TRUE(hung.empty()) << "hung:\n" << all;
}

}  // namespace
}  // namespace alertdb_test
