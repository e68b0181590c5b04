// Batched add, find-first, find-next and retrieve on the link table and the
// event log, by the unique object-ID key and by a key that is not unique,
// each beside plain SQLite doing the same work on the same stored bytes.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "bench_main.h"
#include "framework/alert_status.h"
#include "table_sides.h"

namespace alertdb_bench {

namespace {

// Records added per run: enough for several commits, few enough that the
// table stays near its size.
std::uint64_t addsPerRun(std::uint64_t count) {
  return count / 10 > kCommitEvery ? count / 10 : kCommitEvery;
}

template <class Kind>
Dataset<Kind> *usable(benchmark::State &state, std::uint64_t count) {
  Dataset<Kind> &d = dataset<Kind>(count);
  if (d.error.empty()) return &d;
  state.SkipWithError(d.error.c_str());
  return nullptr;
}

template <class Kind>
bool found(std::uint32_t key, const typename Kind::Rec &r, const Probe &p) {
  bool match =
      key == Kind::kIdKey ? std::memcmp(&r.KEPOID, p.id.bytes, 16) == 0 : Kind::inGroup(r, p.group);
  return match && Kind::plausible(r);
}

const KeyBytes &valueOf(std::uint32_t idKey, std::uint32_t key, const Probe &p) {
  return key == idKey ? p.id : p.group;
}

// ------------------------------------------------------------ batched add

template <class Kind>
void engineAdd(benchmark::State &state, std::uint64_t count) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  const std::uint64_t adds = addsPerRun(count);
  auto r = std::make_unique<typename Kind::Rec>();
  Kind::make(count, count, r.get());
  KEPDB *h = d->engine->handle();
  _GUID id;
  for (auto _ : state) {
    bool ok = inBatches(
        adds, [h] { return DBFileLock(h) == 0; }, [h] { return DBFileUnlock(h) == 0; },
        [&](std::uint64_t i) {
          Kind::vary(count + i, count, r.get());
          r->KEPOID = {};  // the table makes the ID
          return d->engine->DBAlertRecAdd(r.get(), &id) == 0;
        });
    state.PauseTiming();
    ok = trimTable(d->enginePath(), Kind::kTable, count) && ok;
    state.ResumeTiming();
    if (!ok) {
      state.SkipWithError("add failed");
      break;
    }
  }
  countRecords(state, state.iterations() * adds);
}

template <class Kind>
void baselineAdd(benchmark::State &state, std::uint64_t count) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  const std::uint64_t adds = addsPerRun(count);
  auto r = std::make_unique<typename Kind::Rec>();
  Kind::make(count, count, r.get());
  Baseline<Kind> &b = *d->baseline;
  for (auto _ : state) {
    bool ok = inBatches(
        adds, [&b] { return b.begin(); }, [&b] { return b.commit(); },
        [&](std::uint64_t i) {
          Kind::vary(count + i, count, r.get());
          r->KEPOID = {};
          return b.add(r.get()) == Added::Ok;
        });
    state.PauseTiming();
    ok = trimTable(d->baselinePath(), Kind::kTable, count) && ok;
    state.ResumeTiming();
    if (!ok) {
      state.SkipWithError("add failed");
      break;
    }
  }
  countRecords(state, state.iterations() * adds);
}

// One add per transaction, each made durable before the next.
template <class Kind>
void engineDurableAdd(benchmark::State &state, std::uint64_t count) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  auto r = std::make_unique<typename Kind::Rec>();
  Kind::make(count, count, r.get());
  _GUID id;
  std::uint64_t n = count;
  for (auto _ : state) {
    Kind::vary(n++, count, r.get());
    r->KEPOID = {};
    if (d->engine->DBAlertRecAdd(r.get(), &id) != 0) {
      state.SkipWithError("add failed");
      break;
    }
  }
  if (!trimTable(d->enginePath(), Kind::kTable, count)) state.SkipWithError("cannot trim");
  countRecords(state, state.iterations());
}

template <class Kind>
void baselineDurableAdd(benchmark::State &state, std::uint64_t count) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  auto r = std::make_unique<typename Kind::Rec>();
  Kind::make(count, count, r.get());
  std::uint64_t n = count;
  for (auto _ : state) {
    Kind::vary(n++, count, r.get());
    r->KEPOID = {};
    if (d->baseline->add(r.get()) != Added::Ok) {
      state.SkipWithError("add failed");
      break;
    }
  }
  if (!trimTable(d->baselinePath(), Kind::kTable, count)) state.SkipWithError("cannot trim");
  countRecords(state, state.iterations());
}

// ------------------------------------------------------------ find-first

template <class Kind>
void engineFindFirst(benchmark::State &state, std::uint64_t count, std::uint32_t key) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  auto r = std::make_unique<typename Kind::Rec>();
  std::size_t next = 0;
  for (auto _ : state) {
    const Probe &p = d->probes[next++ % d->probes.size()];
    KeyBytes value = valueOf(Kind::kIdKey, key, p);
    if (d->engine->DBAlertRecFindFirst(key, value.length, value.bytes, r.get()) != 0 ||
        !found<Kind>(key, *r, p)) {
      state.SkipWithError("find-first failed");
      break;
    }
  }
  countRecords(state, state.iterations());
}

template <class Kind>
void baselineFindFirst(benchmark::State &state, std::uint64_t count, std::uint32_t key) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  auto r = std::make_unique<typename Kind::Rec>();
  std::size_t next = 0;
  for (auto _ : state) {
    const Probe &p = d->probes[next++ % d->probes.size()];
    if (!d->baseline->findFirst(key, valueOf(Kind::kIdKey, key, p), r.get()) ||
        !found<Kind>(key, *r, p)) {
      state.SkipWithError("find-first failed");
      break;
    }
  }
  countRecords(state, state.iterations());
}

// ------------------------------------------------------------ find-next

// Each run walks the whole table in key order, checking the order.
template <class Kind>
void engineFindNext(benchmark::State &state, std::uint64_t count, std::uint32_t key) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  auto r = std::make_unique<typename Kind::Rec>();
  for (auto _ : state) {
    std::uint64_t seen = 0;
    OrderKey last;
    for (std::uint32_t rc = d->engine->DBAlertRecFindFirst(key, 0, nullptr, r.get()); rc == 0;
         rc = d->engine->DBAlertRecFindNext(r.get())) {
      OrderKey k = Kind::orderKey(key, *r);
      if ((seen > 0 && !(last <= k)) || !Kind::plausible(*r)) break;
      last = k;
      ++seen;
    }
    if (seen != count) {
      state.SkipWithError("the walk missed records or went out of order");
      break;
    }
  }
  countRecords(state, state.iterations() * count);
}

template <class Kind>
void baselineFindNext(benchmark::State &state, std::uint64_t count, std::uint32_t key) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  auto r = std::make_unique<typename Kind::Rec>();
  Baseline<Kind> &b = *d->baseline;
  for (auto _ : state) {
    std::uint64_t seen = 0;
    OrderKey last;
    sqlite3_stmt *s = b.scan(key);
    while (b.step(s, r.get()) == 1) {
      OrderKey k = Kind::orderKey(key, *r);
      if ((seen > 0 && !(last <= k)) || !Kind::plausible(*r)) break;
      last = k;
      ++seen;
    }
    sqlite3_reset(s);
    if (seen != count) {
      state.SkipWithError("the walk missed records or went out of order");
      break;
    }
  }
  countRecords(state, state.iterations() * count);
}

// ------------------------------------------------------------ retrieve

template <class Kind>
void engineRetrieve(benchmark::State &state, std::uint64_t count) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  auto r = std::make_unique<typename Kind::Rec>();
  std::size_t next = 0;
  for (auto _ : state) {
    const Probe &p = d->probes[next++ % d->probes.size()];
    _GUID id;
    std::memcpy(&id, p.id.bytes, sizeof id);
    r->KEPOID = {};  // so that the ID argument is the one looked up
    if (d->engine->DBAlertRecRetrieve(&id, r.get()) != 0 || !found<Kind>(Kind::kIdKey, *r, p)) {
      state.SkipWithError("retrieve failed");
      break;
    }
  }
  countRecords(state, state.iterations());
}

template <class Kind>
void baselineRetrieve(benchmark::State &state, std::uint64_t count) {
  auto *d = usable<Kind>(state, count);
  if (!d) return;
  auto r = std::make_unique<typename Kind::Rec>();
  std::size_t next = 0;
  for (auto _ : state) {
    const Probe &p = d->probes[next++ % d->probes.size()];
    _GUID id;
    std::memcpy(&id, p.id.bytes, sizeof id);
    if (!d->baseline->retrieve(id, r.get()) || !found<Kind>(Kind::kIdKey, *r, p)) {
      state.SkipWithError("retrieve failed");
      break;
    }
  }
  countRecords(state, state.iterations());
}

// ------------------------------------------------------------ link duplicate check

// Re-adding links that exist: the add must refuse each.
void engineLinkRefused(benchmark::State &state, std::uint64_t count) {
  auto *d = usable<LinkKind>(state, count);
  if (!d) return;
  LinkKind::Rec r;
  _GUID id;
  std::size_t next = 0;
  for (auto _ : state) {
    LinkKind::make(d->probes[next++ % d->probes.size()].index, count, &r);
    r.KEPOID = {};
    if (d->engine->DBAlertRecAdd(&r, &id) != ALRT_E_LINKEXISTS) {
      state.SkipWithError("a duplicate link was not refused");
      break;
    }
  }
  countRecords(state, state.iterations());
}

void baselineLinkRefused(benchmark::State &state, std::uint64_t count) {
  auto *d = usable<LinkKind>(state, count);
  if (!d) return;
  LinkKind::Rec r;
  std::size_t next = 0;
  for (auto _ : state) {
    LinkKind::make(d->probes[next++ % d->probes.size()].index, count, &r);
    r.KEPOID = {};
    if (d->baseline->add(&r) != Added::Refused) {
      state.SkipWithError("a duplicate link was not refused");
      break;
    }
  }
  countRecords(state, state.iterations());
}

// ------------------------------------------------------------ registration

template <class Kind>
void registerKind(std::uint64_t count, bool durable) {
  const std::string size = "/" + std::to_string(count);
  const std::string name = Kind::kName;
  auto pair = [&](const std::string &work, auto engine, auto baseline) {
    registerPaired(name + work + size, engine, baseline);
  };
  pair(
      "Add", [count](benchmark::State &s) { engineAdd<Kind>(s, count); },
      [count](benchmark::State &s) { baselineAdd<Kind>(s, count); });
  for (std::uint32_t key : {Kind::kIdKey, Kind::kGroupKey}) {
    std::string by = key == Kind::kIdKey ? "ById" : std::string("By") + Kind::kGroupName;
    pair(
        "FindFirst" + by,
        [count, key](benchmark::State &s) { engineFindFirst<Kind>(s, count, key); },
        [count, key](benchmark::State &s) { baselineFindFirst<Kind>(s, count, key); });
    pair(
        "FindNext" + by, [count, key](benchmark::State &s) { engineFindNext<Kind>(s, count, key); },
        [count, key](benchmark::State &s) { baselineFindNext<Kind>(s, count, key); });
  }
  pair(
      "Retrieve", [count](benchmark::State &s) { engineRetrieve<Kind>(s, count); },
      [count](benchmark::State &s) { baselineRetrieve<Kind>(s, count); });
  if (durable) {
    pair(
        "DurableAdd", [count](benchmark::State &s) { engineDurableAdd<Kind>(s, count); },
        [count](benchmark::State &s) { baselineDurableAdd<Kind>(s, count); });
  }
}

}  // namespace

void registerTableBenchmarks() {
  bool first = true;
  for (std::uint64_t count : benchSizes()) {
    registerKind<LinkKind>(count, first);
    registerPaired(
        "LinkRefused/" + std::to_string(count),
        [count](benchmark::State &s) { engineLinkRefused(s, count); },
        [count](benchmark::State &s) { baselineLinkRefused(s, count); });
    registerKind<LogKind>(count, first);
    registerPurgeBenchmarks(count);
    first = false;
  }
}

}  // namespace alertdb_bench

namespace alertdb_bench {

namespace {
std::vector<std::function<void()>> &releasers() {
  static std::vector<std::function<void()>> list;
  return list;
}
}  // namespace

void onRelease(std::function<void()> release) { releasers().push_back(std::move(release)); }

void releaseDatasets() {
  for (auto &release : releasers()) release();
}

}  // namespace alertdb_bench
