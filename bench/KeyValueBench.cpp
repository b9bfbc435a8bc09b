// Write-through cost of a user-defaults setter against a plain SQLite
// upsert loop with the same durability settings, and the cost of a read
// against a plain SQLite select of the same row.
//
// Every write commits its own transaction with synchronous=FULL, so the
// figures are bound by the disk's flush latency, not by the code.

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "BenchFigure.h"
#include "RecordingReporter.h"
#include "platform/UserDefaults.h"
#include "platform/linux/KeyValueDatabase.h"

namespace {

namespace fs = std::filesystem;
using zivora::platform::KeyValueDatabase;
using zivora::platform::UserDefaults;

constexpr int kKeys = 64;
const std::string kValue = "https://cdn.zivora.example/images/close-button@2x.png";

class ScratchDirectory {
 public:
  ScratchDirectory() {
    std::string pattern = (fs::temp_directory_path() / "zivora-bench-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

std::string keyFor(std::int64_t i) { return fmt::format("key{}", i % kKeys); }

void UserDefaultsSetString(benchmark::State& state) {
  ScratchDirectory dir;
  auto database = KeyValueDatabase::open(dir.path() / "defaults.sqlite");
  if (!database) return state.SkipWithError("cannot open the database");
  UserDefaults defaults(database, "configuration");
  std::int64_t i = 0;
  for (auto _ : state) {
    if (!defaults.setValue(keyFor(i++), kValue)) return state.SkipWithError("write failed");
  }
  state.SetItemsProcessed(state.iterations());
}
// Bound by the disk's flushes, whose latency moves with the shared disk's
// load: five repetitions, interleaved with the baseline's (main()), and
// their median.
BENCHMARK(UserDefaultsSetString)->Unit(benchmark::kMicrosecond)->UseRealTime()->Repetitions(5);

void check(int code, sqlite3* db) {
  if (code != SQLITE_OK && code != SQLITE_DONE && code != SQLITE_ROW) {
    throw std::runtime_error(sqlite3_errmsg(db));
  }
}

// The same table and pragmas as the store, with nothing around them: no
// JSON, no mutex, no logging.
sqlite3* openBaseline(const ScratchDirectory& dir) {
  sqlite3* db = nullptr;
  check(sqlite3_open((dir.path() / "baseline.sqlite").c_str(), &db), db);
  check(sqlite3_exec(db,
                     "PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
                     "CREATE TABLE defaults (suite TEXT NOT NULL, key TEXT NOT NULL,"
                     " value TEXT NOT NULL, PRIMARY KEY (suite, key)) WITHOUT ROWID",
                     nullptr, nullptr, nullptr),
        db);
  return db;
}

void SqliteBaselineUpsert(benchmark::State& state) {
  ScratchDirectory dir;
  sqlite3* db = openBaseline(dir);
  sqlite3_stmt* upsert = nullptr;
  check(sqlite3_prepare_v2(
            db, "INSERT OR REPLACE INTO defaults (suite, key, value) VALUES (?1, ?2, ?3)", -1,
            &upsert, nullptr),
        db);
  std::string text = "\"" + kValue + "\"";
  std::int64_t i = 0;
  for (auto _ : state) {
    std::string key = keyFor(i++);
    sqlite3_bind_text(upsert, 1, "configuration", -1, SQLITE_STATIC);
    sqlite3_bind_text(upsert, 2, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    sqlite3_bind_text(upsert, 3, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    check(sqlite3_step(upsert), db);
    sqlite3_reset(upsert);
  }
  sqlite3_finalize(upsert);
  sqlite3_close(db);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SqliteBaselineUpsert)->Unit(benchmark::kMicrosecond)->UseRealTime()->Repetitions(5);

void UserDefaultsStringForKey(benchmark::State& state) {
  ScratchDirectory dir;
  auto database = KeyValueDatabase::open(dir.path() / "defaults.sqlite");
  if (!database) return state.SkipWithError("cannot open the database");
  UserDefaults defaults(database, "configuration");
  for (int k = 0; k < kKeys; ++k) defaults.setValue(keyFor(k), kValue);
  std::int64_t i = 0;
  for (auto _ : state) {
    auto value = defaults.stringForKey(keyFor(i++));
    benchmark::DoNotOptimize(value);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(UserDefaultsStringForKey)->Unit(benchmark::kMicrosecond);

void SqliteBaselineSelect(benchmark::State& state) {
  ScratchDirectory dir;
  sqlite3* db = openBaseline(dir);
  const std::string text = "\"" + kValue + "\"";
  sqlite3_stmt* statement = nullptr;
  check(sqlite3_prepare_v2(db, "INSERT INTO defaults (suite, key, value) VALUES (?1, ?2, ?3)", -1,
                           &statement, nullptr),
        db);
  for (int k = 0; k < kKeys; ++k) {
    std::string key = keyFor(k);
    sqlite3_bind_text(statement, 1, "configuration", -1, SQLITE_STATIC);
    sqlite3_bind_text(statement, 2, key.data(), static_cast<int>(key.size()), SQLITE_TRANSIENT);
    sqlite3_bind_text(statement, 3, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
    check(sqlite3_step(statement), db);
    sqlite3_reset(statement);
  }
  sqlite3_finalize(statement);
  check(sqlite3_prepare_v2(db, "SELECT value FROM defaults WHERE suite = ?1 AND key = ?2", -1,
                           &statement, nullptr),
        db);
  std::int64_t i = 0;
  for (auto _ : state) {
    std::string key = keyFor(i++);
    sqlite3_bind_text(statement, 1, "configuration", -1, SQLITE_STATIC);
    sqlite3_bind_text(statement, 2, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    check(sqlite3_step(statement), db);
    std::string value(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
    benchmark::DoNotOptimize(value);
    sqlite3_reset(statement);
  }
  sqlite3_finalize(statement);
  sqlite3_close(db);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(SqliteBaselineSelect)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  // The repetitions of the benchmarks run in random order, so that a write
  // and its baseline meet the same weather on the disk.
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  std::vector<char*> args(argv, argv + argc);
  args.insert(args.begin() + 1, interleave.data());
  int count = static_cast<int>(args.size());
  zivora::bench::RecordingReporter reporter;
  if (!zivora::bench::RecordingReporter::runBenchmarks(count, args.data(), reporter)) return 1;

  using zivora::bench::BenchFigure;
  // The same durability and the same statements underneath: within 1.2 of
  // plain SQLite, as the other stores are of their floors.
  BenchFigure::withinRatio("user-defaults write (commit)",
                           reporter.realTime("UserDefaultsSetString"),
                           reporter.realTime("SqliteBaselineUpsert"), "us", 1.2)
      .print();
  BenchFigure::withinRatio("user-defaults read", reporter.realTime("UserDefaultsStringForKey"),
                           reporter.realTime("SqliteBaselineSelect"), "us", 1.2)
      .print();
  return BenchFigure::exitStatus();
}
