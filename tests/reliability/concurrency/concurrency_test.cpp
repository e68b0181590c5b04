// Four processes of two threads each change the alerting data at once, each
// thread through its own table objects. Afterwards the data must be exactly
// what the successful calls made, every call must have given the status its
// situation calls for (contention waits, it never fails), nothing may hang,
// and every process must have seen the others' changes signalled.
//
// ALERTDB_CONCURRENCY_SECONDS (default 4) sets how long the processes work,
// ALERTDB_CONCURRENCY_SEED the seed of their choices (printed with the
// figures, so that a run can be repeated).
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "alertdb.h"
#include "reliability/concurrency/concurrency_log.h"
#include "reliability/concurrency/concurrency_model.h"
#include "reliability/concurrency/concurrency_tables.h"
#include "reliability/concurrency/concurrency_tsan_clocklock.h"
#include "reliability/concurrency/concurrency_watchdog.h"
#include "support/child_process.h"
#include "support/test_environment.h"
#include "support/tool_run.h"

namespace concurrency {
namespace {

constexpr int kWorkers = 4;
// Log files per worker: its two working threads and the quiet round's.
constexpr int kLogsPerWorker = 3;
// Time a run may take beyond its working time before it counts as hung.
constexpr std::chrono::seconds kGrace{60};

double runSeconds() {
  const char *text = std::getenv("ALERTDB_CONCURRENCY_SECONDS");
  double seconds = text ? std::atof(text) : 0;
  return seconds > 0 ? seconds : 4;
}

std::uint64_t runSeed() {
  const char *text = std::getenv("ALERTDB_CONCURRENCY_SEED");
  if (text && *text) return std::strtoull(text, nullptr, 10);
  return std::random_device{}();
}

// The worker program: ALERTDB_CONCURRENCY_WORKER may name another build's
// (the ThreadSanitizer build's) instead of this one's.
std::string workerProgram() {
  const char *other = std::getenv("ALERTDB_CONCURRENCY_WORKER");
  if (!other || !*other) return "concurrency_worker";
  return std::filesystem::relative(other, std::string(ALERTDB_TEST_BINARY_DIR) + "/programs")
      .string();
}

std::vector<std::string> words(const std::string &line) {
  std::istringstream in(line);
  std::vector<std::string> out;
  for (std::string word; in >> word;) out.push_back(word);
  return out;
}

// What the logs tell about a run, for the figures.
struct Statistics {
  std::uint64_t calls = 0;
  std::map<std::string, std::uint64_t> callsByOp;
  std::map<std::uint32_t, std::uint64_t> statuses;
  std::uint64_t longestUs = 0, longestLockUs = 0;
  std::string longestOp;
  std::uint64_t firstStartUs = ~std::uint64_t{0}, lastEndUs = 0;

  std::uint64_t registrationChecks = 0;

  void add(const Entry &entry) {
    if (entry.op == "problem" || entry.op == "snap") return;
    // The object manager's view, asked for by the harness itself.
    if (entry.op == "om") {
      ++registrationChecks;
      return;
    }
    ++calls;
    ++callsByOp[entry.op];
    ++statuses[entry.status];
    if (entry.durationUs > longestUs) {
      longestUs = entry.durationUs;
      longestOp = entry.op;
    }
    if (entry.op == "lock" || entry.op == "rlock")
      longestLockUs = std::max(longestLockUs, entry.durationUs);
    firstStartUs = std::min(firstStartUs, entry.startUs);
    lastEndUs = std::max(lastEndUs, entry.startUs + entry.durationUs);
  }
};

class ConcurrencyTest : public alertdb_test::IsolatedTest {
 protected:
  void TearDown() override {
    if (watchdog_) {
      watchdog_->stop();
      EXPECT_FALSE(watchdog_->fired()) << "the run hung; where each process waited:\n"
                                       << watchdog_->backtraces();
    }
    workers_.clear();
    IsolatedTest::TearDown();
  }

  std::string logDir() const { return dataPath("concurrency-logs"); }

  // Starts the workers and waits until each has opened its tables.
  void startWorkers(double seconds, std::uint64_t seed, const std::string &mode) {
    std::filesystem::create_directories(logDir());
    watchdog_ = std::make_unique<Watchdog>(
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::duration<double>(seconds)) +
        kGrace);
    for (int w = 0; w < kWorkers; ++w) {
      std::vector<std::string> args = {std::to_string(w), std::to_string(seconds),
                                       std::to_string(seed), logDir()};
      if (!mode.empty()) args.push_back(mode);
      workers_.push_back(std::make_unique<alertdb_test::ChildProcess>(workerProgram(), args));
      ASSERT_TRUE(workers_.back()->started());
    }
    for (int w = 0; w < kWorkers; ++w) {
      std::vector<std::string> ready = expectLine(w, "ready");
      ASSERT_EQ(ready.size(), 2u);
      watchdog_->watch(std::atoi(ready[1].c_str()));
    }
  }

  void tell(const std::string &line) {
    for (auto &worker : workers_) worker->writeLine(line);
  }

  // The next line of worker `w`, which must start with `word`; its words.
  std::vector<std::string> expectLine(int w, const std::string &word) {
    std::string line = workers_[w]->readLine();
    std::vector<std::string> fields = words(line);
    EXPECT_TRUE(!fields.empty() && fields[0] == word)
        << "worker " << w << " said \"" << line << "\" instead of " << word
        << (line.empty() ? " (it ended; see its messages above)" : "");
    return fields;
  }

  // Every worker must end of itself with status 0 (ThreadSanitizer makes
  // it 66 after reporting a race); false when the logs may be incomplete
  // (TearDown reports a watchdog that fired).
  bool finishWorkers() {
    tell("quit");
    bool ended = true;
    for (int w = 0; w < kWorkers; ++w) {
      int status = workers_[w]->wait();
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
          << "worker " << w << " ended with wait status " << status;
      ended = ended && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    }
    watchdog_->stop();
    return ended && !watchdog_->fired();
  }

  // Replays every thread's log against the model; the problems found.
  std::vector<std::string> replay(Model *model, Statistics *stats) {
    std::vector<std::string> problems;
    std::vector<std::vector<Entry>> logs;
    for (int w = 0; w < kWorkers; ++w) {
      for (int t = 0; t < kLogsPerWorker; ++t) {
        logs.emplace_back();
        std::ifstream in(logPath(logDir(), w, t));
        for (std::string line; std::getline(in, line);) {
          Entry entry;
          if (!Entry::parse(line, &entry)) {
            problems.push_back(logPath(logDir(), w, t) + ": malformed line \"" + line + "\"");
            continue;
          }
          logs.back().push_back(entry);
        }
      }
    }
    logs_ = logs;
    Versions versions;
    for (const auto &log : logs) {
      for (const Entry &entry : log) Model::collectVersions(entry, &versions);
    }
    for (std::size_t owner = 0; owner < logs.size(); ++owner) {
      for (const Entry &entry : logs[owner]) {
        stats->add(entry);
        std::string problem = model->check(entry, static_cast<int>(owner), &versions);
        if (!problem.empty()) problems.push_back("owner " + std::to_string(owner) + ": " + problem);
      }
    }
    return problems;
  }

  // The records the data files hold now, read through the table classes.
  std::map<Oid, std::pair<Table, Hash>> storedRecords(std::vector<std::string> *problems) {
    std::map<Oid, std::pair<Table, Hash>> stored;
    for (Table kind : kWorked) {
      std::string error = readRecords(kind, [&](const Oid &id, const void *record) {
        Hash hash = XXH3_64bits(record, tableInfo(kind).size);
        if (!stored.emplace(id, std::make_pair(kind, hash)).second)
          problems->push_back("two stored records have the ID " + oidText(id));
      });
      if (!error.empty()) problems->push_back(error);
    }
    return stored;
  }

  // The data must be exactly what the model says the calls left; `counts`
  // gets the live records of each table.
  std::vector<std::string> compareData(const Model &model, std::map<Table, std::size_t> *counts) {
    std::vector<std::string> problems;
    std::map<Oid, std::pair<Table, Hash>> stored = storedRecords(&problems);
    for (const auto &[id, record] : model.records()) {
      auto it = stored.find(id);
      std::string what = std::string(tableName(record.table)) + " " + oidText(id) + " of owner " +
                         std::to_string(record.owner);
      if (!record.alive) {
        if (it != stored.end()) problems.push_back(what + " is stored, though deleted");
        continue;
      }
      ++(*counts)[record.table];
      if (it == stored.end()) {
        problems.push_back(what + " is missing");
      } else if (it->second.first != record.table) {
        problems.push_back(what + " is stored as a " + tableName(it->second.first));
      } else if (it->second.second != record.hash()) {
        problems.push_back(what + " holds content other than its last successful write");
      }
    }
    for (const auto &[id, kindAndHash] : stored) {
      if (!model.find(id))
        problems.push_back(std::string(tableName(kindAndHash.first)) + " " + oidText(id) +
                           " is stored, though no successful call made it");
    }
    return problems;
  }

  // The object manager's instances follow the users, event classes and log
  // entries: each one stored is registered, and a deleted event class is not.
  std::vector<std::string> compareObjectManager(const Model &model) {
    std::vector<std::string> problems;
    for (const auto &[id, record] : model.records()) {
      if (!isMirrored(record.table)) continue;
      _GUID guid = guidOf(id), classId{};
      char name[64] = {};
      std::uint32_t status = platform::KepOMGetInstance(&guid, &classId, name, sizeof name);
      std::string what = std::string(tableName(record.table)) + " " + oidText(id);
      if (record.alive && (status != 0 || idOf(classId) != classOf(record.table))) {
        problems.push_back(what + " is stored but not registered as one");
      } else if (!record.alive && record.table == kEventClass && status == 0) {
        problems.push_back(what + " was deleted but is still registered");
      }
    }
    return problems;
  }

  // The problems, each with the logged calls that named the object IDs in
  // it, so that a failure shows how the record got where it is.
  std::string firstOf(const std::vector<std::string> &problems) const {
    std::string text = std::to_string(problems.size()) + " problems:\n";
    for (std::size_t i = 0; i < problems.size() && i < 25; ++i) {
      text += "  " + problems[i] + "\n";
      if (i >= 5) continue;
      for (const std::string &word : words(problems[i])) {
        Oid id;
        if (!parseOid(word, &id)) continue;
        for (std::size_t owner = 0; owner < logs_.size(); ++owner) {
          std::string batch;
          for (const Entry &entry : logs_[owner]) {
            if (entry.op == "lock") batch = " (in a batch on " + entry.args[0] + ")";
            if (entry.op == "unlock") batch.clear();
            std::string line = entry.format();
            if (line.find(word) != std::string::npos && line.size() < 400)
              text += "      owner " + std::to_string(owner) + ": " + line + batch + "\n";
          }
        }
      }
    }
    return text;
  }

  std::vector<std::unique_ptr<alertdb_test::ChildProcess>> workers_;
  std::unique_ptr<Watchdog> watchdog_;
  std::vector<std::vector<Entry>> logs_;
};

TEST_F(ConcurrencyTest, ProcessesAtWorkLeaveExactlyWhatTheirSuccessfulCallsMade) {
  double seconds = runSeconds();
  std::uint64_t seed = runSeed();
  ASSERT_EQ(createDataFiles(), 0u);
  {
    TableSet tables;
    ASSERT_EQ(tables.openAll(), 0u);
  }
  ASSERT_NO_FATAL_FAILURE(startWorkers(seconds, seed, ""));
  tell("go");
  std::uint32_t setsDuringLoad[kWorkers] = {};
  for (int w = 0; w < kWorkers; ++w) {
    std::vector<std::string> done = expectLine(w, "done");
    ASSERT_EQ(done.size(), 4u);
    EXPECT_EQ(done[2], "0") << "worker " << w << " found faults (see its messages above)";
    setsDuringLoad[w] = static_cast<std::uint32_t>(std::strtoul(done[3].c_str(), nullptr, 10));
    EXPECT_GT(setsDuringLoad[w], 0u) << "worker " << w << " saw no change signalled";
  }

  // One change at a time: each process must see every other's signal.
  int signalsSeen = 0;
  for (int k = 0; k < kWorkers; ++k) {
    workers_[k]->writeLine("signal");
    std::vector<std::string> signalled = expectLine(k, "signalled");
    ASSERT_EQ(signalled.size(), 4u);
    auto before = static_cast<std::uint32_t>(std::strtoul(signalled[1].c_str(), nullptr, 10));
    auto after = static_cast<std::uint32_t>(std::strtoul(signalled[2].c_str(), nullptr, 10));
    EXPECT_NE(after, before) << "worker " << k << "'s change did not set the event";
    EXPECT_EQ(signalled[3], "0");
    for (int j = 0; j < kWorkers; ++j) {
      if (j == k) continue;
      workers_[j]->writeLine("watch " + std::to_string(after));
      std::vector<std::string> saw = expectLine(j, "saw");
      if (saw.size() == 3 && saw[2] == "1") ++signalsSeen;
      EXPECT_EQ(saw.size() == 3 ? saw[2] : "", "1")
          << "worker " << j << " did not see worker " << k << "'s change signalled";
    }
  }
  if (!finishWorkers()) return;

  Model model;
  Statistics stats;
  std::vector<std::string> problems = replay(&model, &stats);
  EXPECT_TRUE(problems.empty()) << "calls that did not do what they must:\n" << firstOf(problems);
  std::map<Table, std::size_t> counts;
  problems = compareData(model, &counts);
  EXPECT_TRUE(problems.empty()) << "data that is not what the calls made:\n" << firstOf(problems);
  problems = compareObjectManager(model);
  EXPECT_TRUE(problems.empty()) << firstOf(problems);
  alertdb_test::ToolResult check = alertdb_test::runTool({"check"});
  EXPECT_EQ(check.exitCode, 0) << check.out << check.err;

  // The figures of the run.
  std::ostringstream figures;
  double wall = (stats.lastEndUs - stats.firstStartUs) / 1e6;
  figures << "concurrency: " << kWorkers << " processes x 2 threads for " << seconds << " s, seed "
          << seed << "\n"
          << "  calls: " << stats.calls << " (" << static_cast<std::uint64_t>(stats.calls / wall)
          << " per second)\n  by call:";
  for (const auto &[op, n] : stats.callsByOp) figures << " " << op << " " << n << ";";
  figures << "\n  statuses:";
  for (const auto &[status, n] : stats.statuses)
    figures << " " << AlertDBStatusName(status) << " (0x" << std::hex << status << std::dec << ") "
            << n << ";";
  figures << "\n  object manager registrations checked: " << stats.registrationChecks
          << "\n  longest call: " << stats.longestUs / 1000.0 << " ms (" << stats.longestOp
          << "); longest wait for a lock: " << stats.longestLockUs / 1000.0 << " ms\n"
          << "  records at the end:";
  for (const auto &[table, n] : counts) figures << " " << tableName(table) << " " << n << ";";
  figures << "\n  change event: " << signalsSeen << " of " << kWorkers * (kWorkers - 1)
          << " signals seen by each other process; sets seen during the load:";
  for (std::uint32_t n : setsDuringLoad) figures << " " << n;
  std::cout << figures.str() << std::endl;
  RecordProperty("calls", static_cast<int>(stats.calls));
  RecordProperty("seed", std::to_string(seed));
}

// Processes that start together find the data files without most of their
// tables and open or create them all at once: every open succeeds, and the
// tables are usable.
TEST_F(ConcurrencyTest, ProcessesOpeningEveryTableAtOnceAllSucceed) {
  ASSERT_EQ(createDataFiles(), 0u);
  ASSERT_NO_FATAL_FAILURE(startWorkers(0, runSeed(), "open"));
  tell("go");
  for (int w = 0; w < kWorkers; ++w) {
    std::vector<std::string> opened = expectLine(w, "opened");
    ASSERT_EQ(opened.size(), 4u);
    EXPECT_EQ(opened[1] + " " + opened[2], "0 0")
        << "worker " << w << "'s threads could not open or create every table";
    EXPECT_EQ(opened[3], "0") << "worker " << w << " found faults (see its messages above)";
  }
  if (!finishWorkers()) return;
  Model model;
  Statistics stats;
  std::vector<std::string> problems = replay(&model, &stats);
  EXPECT_TRUE(problems.empty()) << firstOf(problems);
  std::map<Table, std::size_t> counts;
  problems = compareData(model, &counts);
  EXPECT_TRUE(problems.empty()) << firstOf(problems);
  EXPECT_EQ(counts[kUser], static_cast<std::size_t>(kWorkers * 2));
  alertdb_test::ToolResult check = alertdb_test::runTool({"check"});
  EXPECT_EQ(check.exitCode, 0) << check.out << check.err;
}

}  // namespace
}  // namespace concurrency
