// What a killed crash writer's output says: the calls and batches it had
// acknowledged, and the one it was in when it died; and from that, the world
// every acknowledged change makes and the steps of the interrupted ones.
#pragma once

#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "reliability/crash/crash_lines.h"
#include "reliability/crash/crash_model.h"

namespace crash {

struct WriterItem {
  bool batch = false;
  int number = 0;
  std::vector<WriterCall> calls;  // one call, or the batch's calls that succeeded
  bool unlocking = false;         // a batch whose unlocks had begun
};

struct WriterLog {
  bool ready = false;
  bool done = false;
  std::string fault;  // an "error" line of the writer, or output that breaks the protocol
  std::vector<WriterItem> acknowledged;
  std::optional<WriterItem> running;  // what the kill interrupted
  long announced = 0;                 // calls announced with "do"
};

inline WriterLog parseWriterLog(const std::vector<std::string> &lines) {
  WriterLog log;
  std::optional<WriterCall> call;  // announced, not yet acknowledged
  std::optional<WriterItem> batch;
  auto fault = [&](const std::string &what) {
    if (log.fault.empty()) log.fault = what;
  };
  for (const std::string &line : lines) {
    std::istringstream in(line);
    std::string word;
    in >> word;
    int number = 0;
    if (word == "ready") {
      log.ready = true;
    } else if (word == "done") {
      log.done = true;
    } else if (word == "error") {
      fault("writer failed: " + line);
    } else if (word == "do") {
      WriterCall c;
      in >> c.number >> c.op;
      for (std::string arg; in >> arg;) c.args.push_back(arg);
      if (call) fault("call announced before the last one ended: " + line);
      call = c;
      ++log.announced;
    } else if (word == "ok" || word == "ack") {
      in >> number;
      std::string op;
      in >> op;
      std::vector<Id> made;
      for (std::string rest; in >> rest;) {
        if (rest.rfind("made=", 0) != 0) continue;
        for (const std::string &text : splitOn(rest.substr(5), ',')) {
          Id id{};
          if (!parseId(text, &id)) fault("unreadable ID in: " + line);
          made.push_back(id);
        }
      }
      if (call) call->made = made;
      if (word == "ack" && op == "batch-commit") {
        if (!batch || batch->number != number || !batch->unlocking) fault("stray commit: " + line);
        if (batch) log.acknowledged.push_back(*batch);
        batch.reset();
      } else if (!call || call->number != number || (word == "ok") != batch.has_value()) {
        fault("acknowledgement of no running call: " + line);
      } else if (batch) {
        batch->calls.push_back(*call);
        call.reset();
      } else {
        log.acknowledged.push_back({false, number, {*call}, false});
        call.reset();
      }
    } else if (word == "batch") {
      in >> number >> word;
      if (word == "begin" && !batch && !call) {
        batch = WriterItem{true, number, {}, false};
      } else if (word == "unlock" && batch && batch->number == number && !call) {
        batch->unlocking = true;
      } else {
        fault("out of place: " + line);
      }
    } else {
      fault("unknown line: " + line);
    }
  }
  if (batch) {
    log.running = batch;
  } else if (call) {
    log.running = WriterItem{false, call->number, {*call}, false};
  }
  return log;
}

// The world after every acknowledged change of the writers, and a unit for
// each interrupted call or batch. False, with the reason, when a writer's
// call could not have succeeded on the world its earlier calls made.
inline bool expectationsOf(const World &start, const std::vector<WriterLog> &logs, World *expected,
                           std::vector<Unit> *units, std::string *error) {
  World world = start;
  for (const WriterLog &log : logs) {
    Simulation simulation(world);
    for (const WriterItem &item : log.acknowledged) {
      for (const WriterCall &call : item.calls) {
        std::string why;
        if (!simulation.run(call, &why)) {
          *error = "acknowledged call " + call.describe() + ": " + why;
          return false;
        }
      }
    }
    world = simulation.world();
  }
  *expected = world;
  units->clear();
  // Units of different writers must not share the IDs they make up.
  World next = world;
  for (const WriterLog &log : logs) {
    if (!log.running) continue;
    const WriterItem &item = *log.running;
    Simulation simulation(next);
    Unit unit;
    unit.what = item.batch ? "batch " + std::to_string(item.number) : item.calls[0].describe();
    if (item.batch && !item.unlocking) {
      // Killed before its first unlock: nothing of it may be there.
    } else {
      for (const WriterCall &call : item.calls) {
        std::string why;
        if (!simulation.run(call, &why)) {
          *error = "interrupted call " + call.describe() + ": " + why;
          return false;
        }
      }
      unit.steps = item.batch ? commitSteps(next, simulation.world()) : simulation.steps();
    }
    next.nextOrder = simulation.world().nextOrder;
    next.nextPlaceholder = simulation.world().nextPlaceholder;
    units->push_back(std::move(unit));
  }
  expected->nextOrder = next.nextOrder;
  expected->nextPlaceholder = next.nextPlaceholder;
  return true;
}

}  // namespace crash
