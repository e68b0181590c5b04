// Writers killed at random moments: after each round every data file passes
// the tool's full check, every acknowledged change is there, an interrupted
// call or batch left no more than its order of steps allows, and the object
// manager's instances agree with the tables. The checker itself is tested
// first, on worlds built by hand.
//
// ALERTDB_CRASH_ROUNDS sets the number of rounds (20 by default; the same
// under the sanitizers, where they take about 16 s), ALERTDB_CRASH_SEED the
// seed of the mix (printed, so that a failing mix can be run again; the
// moments of the kills follow the clock).
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "alertdb.h"
#include "reliability/crash/crash_model.h"
#include "reliability/crash/crash_store_reader.h"
#include "reliability/crash/crash_writer_log.h"
#include "support/child_process.h"
#include "support/test_environment.h"
#include "support/tool_run.h"

namespace alertdb_test {
namespace {

using namespace crash;

// ------------------------------------------------------------------ checker

Id anId(int n) {
  Id id{};
  id[0] = static_cast<unsigned char>(n);
  id[1] = static_cast<unsigned char>(n >> 8);
  id[14] = kSlotMark;
  return id;
}

RecordDigest content(std::uint64_t body, Id a = {}, Id b = {}, Id c = {}, std::uint32_t number = 0,
                     std::uint64_t sort = 0) {
  return {body, {a, b, c}, number, sort};
}

std::string rec(Table t, const Id &id, const RecordDigest &d) { return formatRecord(t, &id, d); }
std::string pending(Table t, const RecordDigest &d) { return formatRecord(t, nullptr, d); }

WriterCall call(const std::string &op, std::vector<std::string> args) {
  static int number = 0;
  return {++number, op, std::move(args), {}};
}
WriterCall deleting(Table t, const Id &id) {
  return call("delete", {tableInfo(t).name, idText(id)});
}

World replay(const World &start, const std::vector<WriterCall> &calls) {
  Simulation simulation(start);
  for (const WriterCall &c : calls) {
    std::string why;
    EXPECT_TRUE(simulation.run(c, &why)) << c.describe() << ": " << why;
  }
  return simulation.world();
}

// The data a store would hold for `world`: records the library made an ID
// for get a real one.
World realised(const World &world) {
  World data;
  int n = 1000;
  for (const auto &[key, record] : world.records) {
    data.records[{key.table, isPlaceholder(key.id) ? anId(n++) : key.id}] = {record.digest, 0};
  }
  data.instances = world.instances;
  return data;
}

World withSteps(World world, const std::vector<Step> &steps, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k) apply(world, steps[k]);
  return world;
}

class CrashRoundCheckerTest : public IsolatedTest {
 protected:
  // A user with two services and a response through each; the first
  // response is linked to an event class.
  World users() {
    return replay(
        World{},
        {call("add", {rec(kUser, user, content(1))}),
         call("add", {rec(kEventClass, eventClass, content(2))}),
         call("inst-add", {rec(kAddrSmtp, address1, content(3, user)),
                           rec(kInstance, instance1, content(4, user, service1, address1, 5))}),
         call("user-add-service", {rec(kAddrMhs, address2, content(5, user)),
                                   pending(kInstance, content(6, user, service2, address2, 1))}),
         call("add", {rec(kResponse, response1, content(7, user, service1))}),
         call("add", {rec(kResponse, response2, content(8, user, service2))}),
         call("link-add", {pending(kLink, content(9, eventClass, response1))})});
  }

  Id user = anId(1), eventClass = anId(2), address1 = anId(3), address2 = anId(4),
     instance1 = anId(5), response1 = anId(6), response2 = anId(7), service1 = anId(8),
     service2 = anId(9);
};

TEST_F(CrashRoundCheckerTest, AcknowledgedChangesMustAllBeThereAsAnnounced) {
  World expected = users();
  World data = realised(expected);
  EXPECT_TRUE(verifyRound(expected, {}, data).sound);

  World lost = data;
  lost.records.erase({kResponse, response2});
  Verdict verdict = verifyRound(expected, {}, lost);
  EXPECT_FALSE(verdict.sound);
  EXPECT_NE(verdict.report.find("missing: AlertResp_Table"), std::string::npos) << verdict.report;

  World changed = data;
  changed.records[{kAddrSmtp, address1}].digest.body = 33;
  EXPECT_FALSE(verifyRound(expected, {}, changed).sound);

  World stray = data;
  stray.records[{kLink, anId(77)}] = {content(9, eventClass, response2), 0};
  EXPECT_FALSE(verifyRound(expected, {}, stray).sound);

  // The link the library made an ID for must be there, with its content.
  World wrongLink = data;
  for (auto it = wrongLink.records.begin(); it != wrongLink.records.end(); ++it) {
    if (it->first.table == kLink) it->second.digest.body = 10;
  }
  EXPECT_FALSE(verifyRound(expected, {}, wrongLink).sound);

  World noInstance = data;
  noInstance.instances.erase(user);
  EXPECT_FALSE(verifyRound(expected, {}, noInstance).sound);
}

TEST_F(CrashRoundCheckerTest, AnInterruptedUserDeleteStopsOnlyBetweenItsSteps) {
  World expected = users();
  Simulation simulation(expected);
  std::string why;
  ASSERT_TRUE(simulation.run(deleting(kUser, user), &why)) << why;
  std::vector<Step> steps = simulation.steps();
  // Instance, address, response with its link; instance, address, response; the user.
  ASSERT_EQ(steps.size(), 8u);
  EXPECT_EQ(steps.back()[0].key, (RecordKey{kUser, user}));
  for (std::size_t k = 0; k <= steps.size(); ++k) {
    Verdict verdict =
        verifyRound(expected, {{"user delete", steps}}, realised(withSteps(expected, steps, k)));
    EXPECT_TRUE(verdict.sound) << k << verdict.report;
    EXPECT_EQ(verdict.taken, std::vector<std::size_t>{k});
  }

  // The user went first: an instance outlives it.
  World early = realised(withSteps(expected, steps, steps.size()));
  early.records[{kInstance, instance1}] = {content(4, user, service1, address1, 5), 0};
  EXPECT_FALSE(verifyRound(expected, {{"user delete", steps}}, early).sound);

  // The address record went before its instance.
  World addressFirst = realised(expected);
  addressFirst.records.erase({kAddrSmtp, address1});
  EXPECT_FALSE(verifyRound(expected, {{"user delete", steps}}, addressFirst).sound);

  // Acknowledged, nothing of the user may be left.
  World done = replay(expected, {deleting(kUser, user)});
  EXPECT_TRUE(verifyRound(done, {}, realised(done)).sound);
  EXPECT_FALSE(verifyRound(done, {}, realised(withSteps(expected, steps, 7))).sound);
}

TEST_F(CrashRoundCheckerTest, ProtectedResponsesSurviveTheCascades) {
  World expected = replay(
      World{}, {call("add", {rec(kUser, user, content(1))}),
                call("add", {rec(kResponse, response1, content(7, user, service1, {}, 0x4001))}),
                call("add", {rec(kResponse, response2, content(8, user, service2))}),
                deleting(kUser, user)});
  EXPECT_NE(expected.find(kResponse, response1), nullptr);
  EXPECT_EQ(expected.find(kResponse, response2), nullptr);
  EXPECT_EQ(expected.find(kUser, user), nullptr);
  // The alert user's object manager instance stays after its delete.
  EXPECT_EQ(expected.instances.count(user), 1u);
}

TEST_F(CrashRoundCheckerTest, ABatchReachesTheFilesOneFileAtATime) {
  World start = users();
  Simulation simulation(start);
  std::string why;
  Id newClass = anId(20), newUser = anId(21);
  ASSERT_TRUE(simulation.run(call("add", {rec(kUser, newUser, content(30))}), &why)) << why;
  ASSERT_TRUE(simulation.run(call("add", {rec(kEventClass, newClass, content(31))}), &why));
  ASSERT_TRUE(simulation.run(deleting(kResponse, response1), &why)) << why;
  std::vector<Step> steps = commitSteps(start, simulation.world());
  Unit batch{"batch", steps};
  // Events, responses, users, then the object manager.
  for (std::size_t k = 0; k <= steps.size(); ++k) {
    EXPECT_TRUE(verifyRound(start, {batch}, realised(withSteps(start, steps, k))).sound) << k;
  }
  // The user file committed, the event file not.
  World usersOnly = realised(start);
  usersOnly.records[{kUser, newUser}] = {content(30), 0};
  EXPECT_FALSE(verifyRound(start, {batch}, usersOnly).sound);
  // The object manager wrote its held changes before the files committed.
  World instancesFirst = realised(start);
  instancesFirst.instances[newClass] = idOf(platform::kClassIdEventClass);
  EXPECT_FALSE(verifyRound(start, {batch}, instancesFirst).sound);
  // The response file committed before the event file.
  World halfFile = realised(withSteps(start, steps, 0));
  halfFile.records.erase({kResponse, response1});
  EXPECT_FALSE(verifyRound(start, {batch}, halfFile).sound);
}

TEST_F(CrashRoundCheckerTest, AnEventClassDeleteUnregistersItLast) {
  World start = users();
  Simulation simulation(start);
  std::string why;
  ASSERT_TRUE(simulation.run(deleting(kEventClass, eventClass), &why)) << why;
  std::vector<Step> steps = simulation.steps();
  ASSERT_EQ(steps.size(), 3u);
  World recordGone = realised(withSteps(start, steps, 2));
  EXPECT_TRUE(verifyRound(start, {{"delete", steps}}, recordGone).sound);
  World instanceGoneFirst = realised(start);
  instanceGoneFirst.instances.erase(eventClass);
  EXPECT_FALSE(verifyRound(start, {{"delete", steps}}, instanceGoneFirst).sound);
  World done = replay(start, {deleting(kEventClass, eventClass)});
  EXPECT_FALSE(verifyRound(done, {}, recordGone).sound);
}

TEST_F(CrashRoundCheckerTest, ThePurgeTakesAcknowledgedEntriesInTimeOrder) {
  Id late = anId(30), early = anId(31), middle = anId(32), kept = anId(33);
  World start = replay(World{}, {call("add", {rec(kLog, late, content(1, {}, {}, {}, 1, 300))}),
                                 call("add", {rec(kLog, early, content(2, {}, {}, {}, 1, 100))}),
                                 call("add", {rec(kLog, kept, content(3, {}, {}, {}, 0, 50))}),
                                 call("add", {rec(kLog, middle, content(4, {}, {}, {}, 1, 200))})});
  Simulation simulation(start);
  std::string why;
  ASSERT_TRUE(simulation.run(call("log-purge", {"8"}), &why)) << why;
  std::vector<Step> steps = simulation.steps();
  ASSERT_EQ(steps.size(), 3u);
  EXPECT_EQ(steps[0][0].key.id, early);
  EXPECT_EQ(steps[2][0].key.id, late);
  World lateFirst = realised(start);
  lateFirst.records.erase({kLog, late});
  EXPECT_FALSE(verifyRound(start, {{"purge", steps}}, lateFirst).sound);
  World earlyFirst = realised(start);
  earlyFirst.records.erase({kLog, early});
  EXPECT_TRUE(verifyRound(start, {{"purge", steps}}, earlyFirst).sound);
  // Without the automatic setting, flag 8 purges nothing.
  Simulation manual(start, false);
  ASSERT_TRUE(manual.run(call("log-purge", {"8"}), &why));
  EXPECT_TRUE(manual.steps().empty());
}

TEST_F(CrashRoundCheckerTest, CallsThatCouldNotHaveSucceededAreReported) {
  World start = users();
  Simulation simulation(start);
  std::string why;
  EXPECT_FALSE(simulation.run(deleting(kUser, anId(99)), &why));
  EXPECT_NE(why.find("should not be there"), std::string::npos) << why;
  EXPECT_FALSE(simulation.run(call("add", {rec(kUser, user, content(1))}), &why));
  EXPECT_FALSE(
      simulation.run(call("link-add", {pending(kLink, content(9, eventClass, response1))}), &why));
  EXPECT_FALSE(simulation.run(call("frobnicate", {}), &why));

  WriterLog log = parseWriterLog(
      {"ready 0", "do 1 add " + rec(kUser, anId(50), content(1)), "ack 2 add AlertUsr_Table x"});
  EXPECT_FALSE(log.fault.empty());
  log = parseWriterLog({"ready 0", "batch 1 begin", "do 2 add " + rec(kUser, anId(50), content(1)),
                        "ok 2 add", "batch 1 unlock"});
  EXPECT_TRUE(log.fault.empty()) << log.fault;
  ASSERT_TRUE(log.running.has_value());
  EXPECT_TRUE(log.running->unlocking);
  EXPECT_EQ(log.running->calls.size(), 1u);
}

// ------------------------------------------------------------------ rounds

long settingOr(const char *name, long fallback) {
  const char *value = std::getenv(name);
  return value && *value ? std::strtol(value, nullptr, 10) : fallback;
}

struct Figures {
  int rounds = 0;
  int directories = 0;
  int writersKilled = 0;
  int writersFinished = 0;
  long callsAnnounced = 0;
  long changesVerified = 0;
  int killsInBatch = 0;
  int killsWhileUnlocking = 0;
  int callsCutPartway = 0;
  std::size_t mostRecords = 0;
};

constexpr int kRoundsPerDirectory = 10;
// Calls of the writers that are left to finish after each set of rounds.
constexpr int kFinishingCalls = 40;

struct RoundPlan {
  std::vector<int> slots;
  std::vector<std::uint64_t> seeds;
  double lifetimeMs = 0;
  int calls = 0;  // 0: killed after the lifetime
};

// One writer or two on the same data, for tens to hundreds of milliseconds.
RoundPlan planRound(std::mt19937_64 &random, bool finishing) {
  RoundPlan plan;
  if (random() % 5 < 2) {
    plan.slots = {0, 1};
  } else {
    plan.slots = {static_cast<int>(random() % 2)};
  }
  for (std::size_t i = 0; i < plan.slots.size(); ++i) plan.seeds.push_back(random() >> 1);
  plan.lifetimeMs =
      std::exp(std::uniform_real_distribution<double>(std::log(10.0), std::log(400.0))(random));
  if (finishing) plan.calls = kFinishingCalls;
  return plan;
}

class CrashRoundsTest : public IsolatedTest {
 protected:
  // A fresh data directory: every table made by the tool, the console and
  // purge settings, and the object manager's domain.
  void freshDirectory(int number) {
    if (!directory_.empty()) std::filesystem::remove_all(directory_);
    directory_ = dataPath("round-set-" + std::to_string(number));
    std::filesystem::create_directories(directory_);
    ASSERT_NO_FATAL_FAILURE(startAfreshOnServer());
    setenv("ALERTDB_DATA_DIR", directory_.c_str(), 1);
    setenv("ALERTDB_CONSOLE_DIR", directory_.c_str(), 1);
    writeFile(directory_ + "/QADMIN.DAT", "[Directories]\nDataDir=" + directory_ + "\n");
    // This process reads the password setting once, perhaps in an earlier
    // test; the writers must protect passwords as its reads expect.
    writeFile(directory_ + "/QADMIN.INI",
              "[Alert Log Purge Settings]\nAutoPurgeAckEvents=1\n[Alert Service]\n"
              "Encrypt Passwords=" +
                  std::to_string(GetEncryptionStatus()) + "\n");
    ToolResult init = runTool({"init"});
    ASSERT_EQ(init.exitCode, 0) << init.err;
    _GUID domain;
    ASSERT_EQ(platform::KepOMGetDomainID(&domain), 0u);
    domain_ = idOf(domain);
    model_ = World{};
  }

  // Starts the writers and kills them once they have run for the plan's
  // lifetime, or lets them make their calls and end; `outputs` gets what
  // each printed.
  void runWriters(const RoundPlan &plan, std::vector<std::vector<std::string>> *outputs) {
    std::vector<std::unique_ptr<ChildProcess>> processes;
    std::vector<ChildProcess *> writers;
    std::vector<std::string> errorFiles;
    for (std::size_t i = 0; i < plan.slots.size(); ++i) {
      std::vector<std::string> args{std::to_string(plan.slots[i]), std::to_string(plan.seeds[i])};
      if (plan.calls > 0) args.push_back(std::to_string(plan.calls));
      errorFiles.push_back(dataPath("writer-" + std::to_string(i) + ".err"));
      processes.push_back(std::make_unique<ChildProcess>("crash_writer", args, errorFiles.back()));
      ASSERT_TRUE(processes.back()->started());
      writers.push_back(processes.back().get());
    }
    auto all = [&](auto &&test) {
      return [&writers, test] {
        for (ChildProcess *w : writers) {
          if (!test(w)) return false;
        }
        return true;
      };
    };
    auto ended = all([](ChildProcess *w) { return w->ended(); });
    auto ready = all([](ChildProcess *w) {
      for (const std::string &line : w->lines()) {
        if (line.rfind("ready", 0) == 0) return true;
      }
      return w->ended();
    });
    auto now = [] { return std::chrono::steady_clock::now(); };
    pumpUntil(writers, now() + std::chrono::seconds(60), ready);
    if (plan.calls > 0) {
      // Nothing an earlier kill left behind may keep a writer from its end.
      pumpUntil(writers, now() + std::chrono::seconds(60), ended);
      for (ChildProcess *w : writers) {
        EXPECT_TRUE(w->ended()) << "a writer did not finish its calls";
        w->kill(SIGKILL);
        int status = w->wait();
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
      }
    } else {
      auto lifetime = std::chrono::microseconds(static_cast<long>(plan.lifetimeMs * 1000));
      pumpUntil(writers, now() + lifetime, [] { return false; });
      for (ChildProcess *w : writers) w->kill(SIGKILL);
      for (ChildProcess *w : writers) {
        int status = w->wait();
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
            << "a writer ended before it was killed: " << status;
      }
    }
    pumpUntil(writers, now() + std::chrono::seconds(10), ended);
    outputs->clear();
    for (ChildProcess *w : writers) {
      outputs->push_back(w->lines());
      EXPECT_TRUE(w->torn().empty()) << "half a line: " << w->torn();
    }
    // A writer says nothing on its standard error: anything there is a
    // sanitizer's report or a failure of its own.
    for (const std::string &file : errorFiles) {
      std::string said = readFile(file);
      EXPECT_TRUE(said.empty()) << "a writer's standard error:\n" << said.substr(0, 4000);
    }
  }

  // The tool's full check of every file; the records each table holds.
  void checkFiles(std::map<std::string, std::uint32_t> *counts) {
    ToolResult check = runTool({"check", "--format", "json"});
    ASSERT_EQ(check.exitCode, 0) << check.out << check.err;
    nlohmann::json files = nlohmann::json::parse(check.out);
    std::set<std::string> seen;
    for (const auto &file : files) {
      EXPECT_EQ(file["status"], "sound") << file.dump();
      seen.insert(file["file"].get<std::string>());
      for (const auto &table : file["tables"]) {
        (*counts)[table["name"].get<std::string>()] = table["records"].get<std::uint32_t>();
      }
    }
    for (const char *name : kDataFileNames) EXPECT_TRUE(seen.count(name)) << name;
    EXPECT_TRUE(seen.count("KepOM.dat"));
  }

  // Checks the data against what the writers printed, and takes it as the
  // start of the next round.
  void checkData(const std::vector<std::vector<std::string>> &outputs, bool finishing,
                 Figures *figures) {
    std::vector<WriterLog> logs;
    for (const std::vector<std::string> &lines : outputs) {
      logs.push_back(parseWriterLog(lines));
      const WriterLog &log = logs.back();
      ASSERT_TRUE(log.ready) << "a writer did not start";
      ASSERT_TRUE(log.fault.empty()) << log.fault;
      ASSERT_EQ(log.done, finishing);
      ++(finishing ? figures->writersFinished : figures->writersKilled);
      figures->callsAnnounced += log.announced;
      for (const WriterItem &item : log.acknowledged) {
        figures->changesVerified += static_cast<long>(item.calls.size());
      }
      if (log.running && log.running->batch) {
        ++figures->killsInBatch;
        if (log.running->unlocking) ++figures->killsWhileUnlocking;
      }
    }

    World expected;
    std::vector<Unit> units;
    std::string error;
    ASSERT_TRUE(expectationsOf(model_, logs, &expected, &units, &error)) << error;

    std::map<std::string, std::uint32_t> fileCounts;
    ASSERT_NO_FATAL_FAILURE(checkFiles(&fileCounts));
    World actual;
    std::map<Table, std::uint32_t> walked;
    ASSERT_TRUE(readTables(&actual, &walked, &error)) << error;
    for (int t = 0; t < kTableCount; ++t) {
      const char *name = tableInfo(static_cast<Table>(t)).name;
      EXPECT_EQ(walked[static_cast<Table>(t)], fileCounts[name])
          << name << ": the walk met fewer records than the file holds";
    }

    // Every object the instances could be about: known, expected or touched.
    std::set<Id> objects;
    for (const World *w : {&expected, &actual}) {
      for (const auto &[id, cls] : w->instances) objects.insert(id);
      for (const auto &[key, record] : w->records) {
        if (isMirrored(key.table) && !isPlaceholder(key.id)) objects.insert(key.id);
      }
    }
    for (const Unit &unit : units) {
      for (const Step &step : unit.steps) {
        for (const Change &change : step) {
          if (change.kind == Change::kRegister || change.kind == Change::kUnregister) {
            objects.insert(change.key.id);
          }
        }
      }
    }
    objects.erase(domain_);
    readInstances(objects, &actual);
    EXPECT_EQ(fileCounts["OM_Instances"], actual.instances.size() + 1)
        << "the object manager holds instances of no record the writers made";

    Verdict verdict = verifyRound(expected, units, actual);
    if (!verdict.sound) {
      std::string tails;
      for (const std::vector<std::string> &lines : outputs) {
        tails += "\n  writer output, last lines:";
        for (std::size_t i = lines.size() > 12 ? lines.size() - 12 : 0; i < lines.size(); ++i) {
          tails += "\n    " + lines[i];
        }
      }
      FAIL() << "the data after the kill is not what the writers acknowledged:\n"
             << verdict.report << tails;
    }
    for (std::size_t u = 0; u < units.size(); ++u) {
      if (verdict.taken[u] > 0 && verdict.taken[u] < units[u].steps.size()) {
        ++figures->callsCutPartway;
      }
    }
    figures->mostRecords = std::max(figures->mostRecords, actual.records.size());
    model_ = std::move(verdict.verified);
  }

  std::string directory_;
  Id domain_{};
  World model_;
};

TEST_F(CrashRoundsTest, AcknowledgedChangesSurviveWritersKilledAtRandomMoments) {
  const long rounds = settingOr("ALERTDB_CRASH_ROUNDS", 20);
  ASSERT_GT(rounds, 0);
  const std::uint64_t seed = static_cast<std::uint64_t>(settingOr(
      "ALERTDB_CRASH_SEED",
      static_cast<long>(std::chrono::system_clock::now().time_since_epoch().count() & 0x7FFFFFFF)));
  std::cout << "crash rounds: " << rounds << " rounds, seed " << seed
            << " (ALERTDB_CRASH_SEED=" << seed << " runs the same mix again)" << std::endl;
  std::mt19937_64 random(seed);
  Figures figures;
  std::vector<std::vector<std::string>> outputs;

  for (long round = 0; round < rounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round) + " of seed " + std::to_string(seed));
    if (round % kRoundsPerDirectory == 0) {
      ASSERT_NO_FATAL_FAILURE(freshDirectory(figures.directories++));
    }
    ASSERT_NO_FATAL_FAILURE(runWriters(planRound(random, false), &outputs));
    ASSERT_NO_FATAL_FAILURE(checkData(outputs, false, &figures));
    ASSERT_FALSE(HasFailure());
    ++figures.rounds;

    // At the end of a set, writers that are not killed must get through
    // their calls on the data the kills left.
    if ((round + 1) % kRoundsPerDirectory == 0 || round + 1 == rounds) {
      SCOPED_TRACE("writers left to finish");
      ASSERT_NO_FATAL_FAILURE(runWriters(planRound(random, true), &outputs));
      ASSERT_NO_FATAL_FAILURE(checkData(outputs, true, &figures));
      ASSERT_FALSE(HasFailure());
    }
  }

  std::cout << "crash rounds survived: " << figures.rounds << " (seed " << seed << ", "
            << figures.directories << " fresh data directories)\n"
            << "  writers killed: " << figures.writersKilled << "; writers left to finish "
            << "after each set, all finished: " << figures.writersFinished << "\n"
            << "  calls attempted: " << figures.callsAnnounced << "\n"
            << "  acknowledged changes verified: " << figures.changesVerified << "\n"
            << "  kills inside a batch: " << figures.killsInBatch << " ("
            << figures.killsWhileUnlocking << " while unlocking)\n"
            << "  calls found cut off between their steps: " << figures.callsCutPartway << "\n"
            << "  most records at once: " << figures.mostRecords << std::endl;
  RecordProperty("rounds", figures.rounds);
  RecordProperty("acknowledged_changes", static_cast<int>(figures.changesVerified));
  EXPECT_GT(figures.changesVerified, 0);
}

}  // namespace
}  // namespace alertdb_test
