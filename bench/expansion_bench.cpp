// Expansion of a typical message and subject, three parameters each, beside
// a plain baseline that builds the same two texts with {fmt} and formats it
// trusts, checked at compile time (no template to read, no checks at run
// time); {fmt} is faster at this than snprintf. Both sides look the severity
// text up and write the date and time through the same platform calls, and
// both are checked to give the same texts before they are timed. The
// reporter's "Sqlite" column is the {fmt} baseline here.
// The library keeps {fmt} to itself, so the baseline compiles it in.
#define FMT_HEADER_ONLY
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstring>
#include <memory>
#include <string>

#include "bench_support.h"
#include "platform/dos_time.h"
#include "platform/string_table.h"
#include "text/replaceable_parameters.h"
#include "text/severity_texts.h"

namespace alertdb_bench {

namespace {

struct Inputs {
  ALERTRESPREC response{};
  ALRTEVENT_CLASSREC eventClass{};
  ALRTEVENTDATA event{};
  bool withTime = false;

  explicit Inputs(bool time) : withTime(time) {
    std::strcpy(eventClass.EventName, "Disk Space Low");
    std::strcpy(eventClass.Product, "Storage Agent");
    eventClass.Severity = 2;
    std::strcpy(event.MachineName, "FILESRV-02");
    std::strcpy(event.UserName, "backup-operator");
    event.EventID = 20113;
    const unsigned char stamp[8] = {124, 6, 17, 14, 5, 9, 0, 0};
    std::memcpy(event.Time, stamp, sizeof stamp);
    const unsigned char subjectIds[] = {10, 11, 1};
    std::memcpy(response.SubParamIDList, subjectIds, sizeof subjectIds);
    std::strcpy(response.SubjectMsg, "%s alert (%ld) from %s");
    if (withTime) {
      std::strcpy(response.Msg, "Event %s on %s at %s.");
      const unsigned char ids[] = {4, 2, 7};
      std::memcpy(response.ParamIDList, ids, sizeof ids);
    } else {
      std::strcpy(response.Msg, "%s: event %s on %s.");
      const unsigned char ids[] = {8, 4, 2};
      std::memcpy(response.ParamIDList, ids, sizeof ids);
    }
  }
};

struct Outputs {
  std::unique_ptr<char[]> message = std::make_unique<char[]>(2049);
  std::unique_ptr<char[]> subject = std::make_unique<char[]>(261);
};

bool expandTemplates(const Inputs &in, Outputs &out) {
  out.message[0] = out.subject[0] = '\0';
  return ParseReplaceableParamaterListToText(AlertDBModuleHandle(), out.message.get(),
                                             out.subject.get(), &in.response, &in.eventClass,
                                             &in.event, 0) == 0;
}

void terminate(const fmt::format_to_n_result<char *> &written) { *written.out = '\0'; }

bool expandPlainly(const Inputs &in, Outputs &out) {
  const HINSTANCE module = AlertDBModuleHandle();
  if (in.withTime) {
    const unsigned char *t = in.event.Time;
    char date[55] = {}, time[55] = {};
    platform::QSetIntlDate(date, t[1], t[2], t[0]);
    platform::QSetIntlTime(time, t[3], t[4], t[5], 1, 1);
    terminate(fmt::format_to_n(out.message.get(), 2048, "Event {} on {} at {} {}.",
                               in.eventClass.EventName, in.event.MachineName, date, time));
  } else {
    char severity[128] = {};
    GetSeverityText(severity, static_cast<std::int32_t>(in.eventClass.Severity), module);
    std::snprintf(out.message.get(), 2049, "%s: event %s on %s.", severity, in.eventClass.EventName,
                  in.event.MachineName);
  }
  terminate(fmt::format_to_n(out.subject.get(), 258, "{} alert ({}) from {}", in.eventClass.Product,
                             static_cast<std::int32_t>(in.event.EventID), in.event.UserName));
  return true;
}

template <bool (*Expand)(const Inputs &, Outputs &)>
void run(benchmark::State &state, bool withTime) {
  const Inputs in(withTime);
  Outputs out, other;
  expandTemplates(in, out);
  expandPlainly(in, other);
  if (std::strcmp(out.message.get(), other.message.get()) != 0 ||
      std::strcmp(out.subject.get(), other.subject.get()) != 0) {
    state.SkipWithError(
        ("the two sides differ: " + std::string(out.message.get()) + " / " + other.message.get())
            .c_str());
    return;
  }
  for (auto _ : state) {
    if (!Expand(in, out)) {
      state.SkipWithError("the expansion failed");
      break;
    }
    benchmark::DoNotOptimize(out.message[0]);
    benchmark::DoNotOptimize(out.subject[0]);
    benchmark::ClobberMemory();
  }
  countRecords(state, static_cast<std::uint64_t>(state.iterations()));
}

// Registered before main() registers the table benchmarks, so these short
// runs come first.
const bool kRegistered = [] {
  for (bool withTime : {false, true}) {
    registerPaired(
        withTime ? "ExpandParams+DateTime/vs-fmt" : "ExpandParams/vs-fmt",
        [withTime](benchmark::State &s) { run<expandTemplates>(s, withTime); },
        [withTime](benchmark::State &s) { run<expandPlainly>(s, withTime); });
  }
  return true;
}();

}  // namespace

}  // namespace alertdb_bench
