#include "platform/linux/KeyValueDatabase.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include <chrono>
#include <ctime>
#include <nlohmann/json.hpp>
#include <system_error>
#include <utility>

#include "util/ZVLog.h"

namespace zivora::platform {

namespace {

constexpr int kBusyTimeoutMilliseconds = 5000;
constexpr std::size_t kMaxKnownKeys = 4096;

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS defaults ("
    " suite TEXT NOT NULL, key TEXT NOT NULL, value TEXT NOT NULL,"
    " PRIMARY KEY (suite, key)) WITHOUT ROWID";

struct ConnectionCloser {
  void operator()(sqlite3* connection) const noexcept { sqlite3_close_v2(connection); }
};
using Connection = std::unique_ptr<sqlite3, ConnectionCloser>;

// Why a connection could not be made ready. Only a file that is not a
// database, or a damaged one, is worth moving aside: anything else
// (permissions, I/O, a directory in the way) would fail again the same way
// and moving it could hide the host's own file.
enum class Outcome { Ready, Corrupt, Failed };

struct Attempt {
  Outcome outcome = Outcome::Failed;
  Connection connection;
  std::string reason;
};

bool isCorruption(int code) {
  int primary = code & 0xff;
  return primary == SQLITE_NOTADB || primary == SQLITE_CORRUPT;
}

std::string describe(sqlite3* connection, int code) {
  const char* message = connection ? sqlite3_errmsg(connection) : sqlite3_errstr(code);
  return fmt::format("{} (code {})", message ? message : "unknown error", code);
}

// A corrupt attempt keeps its connection open until the file is moved
// aside: closing it would delete the -wal journal, which may hold the last
// committed values.
Attempt failure(Connection connection, int code) {
  std::string reason = describe(connection.get(), code);
  if (isCorruption(code)) return {Outcome::Corrupt, std::move(connection), std::move(reason)};
  return {Outcome::Failed, nullptr, std::move(reason)};
}

// Runs `sql` and collects the first column of the first row, if any.
int query(sqlite3* connection, const char* sql, std::string* firstValue) {
  auto collect = [](void* out, int columns, char** values, char**) -> int {
    auto* text = static_cast<std::string*>(out);
    if (text && text->empty() && columns > 0 && values[0]) *text = values[0];
    return 0;
  };
  return sqlite3_exec(connection, sql, collect, firstValue, nullptr);
}

// The quick check reads every page once, so damage that the first query
// missed (a truncated file, overwritten pages) is found before it can
// surface as a failing write later.
Attempt checkIntegrity(Connection connection) {
  std::string verdict;
  if (int code = query(connection.get(), "PRAGMA quick_check", &verdict); code != SQLITE_OK) {
    return failure(std::move(connection), code);
  }
  if (verdict != "ok")
    return {Outcome::Corrupt, std::move(connection), "integrity check: " + verdict};
  return {Outcome::Ready, std::move(connection), {}};
}

Attempt configure(Connection connection, const std::filesystem::path& file) {
  sqlite3* db = connection.get();
  sqlite3_extended_result_codes(db, 1);
  sqlite3_busy_timeout(db, kBusyTimeoutMilliseconds);
  Attempt checked = checkIntegrity(std::move(connection));
  if (checked.outcome != Outcome::Ready) return checked;

  std::string mode;
  if (int code = query(db, "PRAGMA journal_mode=WAL", &mode); code != SQLITE_OK) {
    return failure(std::move(checked.connection), code);
  }
  if (mode != "wal") {
    ZVLog::LogWarning("[KeyValueDatabase][open] {}: journal mode is {}, not wal", file.string(),
                      mode);
  }
  for (const char* sql : {"PRAGMA synchronous=FULL", kSchema}) {
    if (int code = query(db, sql, nullptr); code != SQLITE_OK) {
      return failure(std::move(checked.connection), code);
    }
  }
  return checked;
}

Attempt connect(const std::filesystem::path& file) {
  sqlite3* raw = nullptr;
  int code =
      sqlite3_open_v2(file.c_str(), &raw,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  Connection connection(raw);
  if (code != SQLITE_OK) return failure(std::move(connection), code);
  return configure(std::move(connection), file);
}

std::filesystem::path asidePath(const std::filesystem::path& file) {
  std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::string base = fmt::format("{}.corrupt-{:%Y%m%dT%H%M%SZ}", file.string(), fmt::gmtime(now));
  std::filesystem::path candidate = base;
  std::error_code error;
  for (int suffix = 1; std::filesystem::exists(candidate, error); ++suffix) {
    candidate = fmt::format("{}-{}", base, suffix);
  }
  return candidate;
}

// Moves the damaged file and its journal files out of the way, so the
// evidence survives and a fresh store can take the name.
bool moveAside(const std::filesystem::path& file, std::filesystem::path& aside) {
  aside = asidePath(file);
  std::error_code error;
  std::filesystem::rename(file, aside, error);
  if (error) {
    ZVLog::LogWarning("[KeyValueDatabase][open] cannot move {} aside: {}", file.string(),
                      error.message());
    return false;
  }
  for (const char* suffix : {"-wal", "-shm"}) {
    std::filesystem::path journal = file.string() + suffix;
    if (!std::filesystem::exists(journal, error)) continue;
    std::filesystem::rename(journal, aside.string() + suffix, error);
    // A journal left behind cannot be replayed into a new database: SQLite
    // checks its salt against the database header.
    if (error) std::filesystem::remove(journal, error);
  }
  return true;
}

// Unbinds and resets a statement when a call leaves, so it is ready for the
// next call and holds no read transaction open.
class StatementUse {
 public:
  explicit StatementUse(sqlite3_stmt* statement) : statement_(statement) {}
  ~StatementUse() {
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  StatementUse(const StatementUse&) = delete;
  StatementUse& operator=(const StatementUse&) = delete;

  int bind(int index, std::string_view text) {
    // The bound text outlives the statement's use: it is reset on exit.
    return sqlite3_bind_text(statement_, index, text.data(), static_cast<int>(text.size()),
                             SQLITE_STATIC);
  }

 private:
  sqlite3_stmt* statement_;
};

}  // namespace

void KeyValueDatabase::StatementDeleter::operator()(sqlite3_stmt* statement) const noexcept {
  sqlite3_finalize(statement);
}

std::shared_ptr<KeyValueDatabase> KeyValueDatabase::open(
    const std::filesystem::path& file) noexcept {
  try {
    std::error_code error;
    std::filesystem::create_directories(file.parent_path(), error);
    if (error) {
      ZVLog::LogWarning("[KeyValueDatabase][open] cannot create the directory of {}: {}",
                        file.string(), error.message());
      return nullptr;
    }
    Attempt attempt = connect(file);
    if (attempt.outcome == Outcome::Corrupt) {
      std::filesystem::path aside;
      bool moved = moveAside(file, aside);
      attempt.connection.reset();
      if (!moved) return nullptr;
      ZVLog::LogWarning("[KeyValueDatabase][open] {} is not a usable database ({}); moved to {}",
                        file.string(), attempt.reason, aside.string());
      attempt = connect(file);
    }
    if (attempt.outcome != Outcome::Ready) {
      ZVLog::LogWarning("[KeyValueDatabase][open] cannot open {}: {}", file.string(),
                        attempt.reason);
      return nullptr;
    }
    std::shared_ptr<KeyValueDatabase> database(
        new KeyValueDatabase(file, attempt.connection.release()));
    if (!database->prepareStatements()) return nullptr;
    return database;
  } catch (const std::exception& error) {
    ZVLog::LogWarning("[KeyValueDatabase][open] cannot open {}: {}", file.string(), error.what());
    return nullptr;
  }
}

KeyValueDatabase::KeyValueDatabase(std::filesystem::path file, sqlite3* connection)
    : file_(std::move(file)), connection_(connection) {}

KeyValueDatabase::~KeyValueDatabase() {
  select_.reset();
  upsert_.reset();
  delete_.reset();
  // The last connection to close checkpoints the WAL into the database.
  sqlite3_close_v2(connection_);
}

bool KeyValueDatabase::prepareStatements() {
  auto prepare = [this](const char* sql, Statement& into) {
    sqlite3_stmt* statement = nullptr;
    int code =
        sqlite3_prepare_v3(connection_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    into.reset(statement);
    if (code == SQLITE_OK) return true;
    ZVLog::LogWarning("[KeyValueDatabase][open] cannot prepare a statement on {}: {}",
                      file_.string(), describe(connection_, code));
    return false;
  };
  return prepare("SELECT value FROM defaults WHERE suite = ?1 AND key = ?2", select_) &&
         prepare("INSERT OR REPLACE INTO defaults (suite, key, value) VALUES (?1, ?2, ?3)",
                 upsert_) &&
         prepare("DELETE FROM defaults WHERE suite = ?1 AND key = ?2", delete_);
}

std::optional<nlohmann::json> KeyValueDatabase::read(std::string_view suite,
                                                     std::string_view key) noexcept {
  try {
    std::lock_guard lock(mutex_);
    if (auto values = known_.find(suite); values != known_.end()) {
      if (auto known = values->second.find(key); known != values->second.end())
        return known->second;
    }
    std::optional<nlohmann::json> value;
    if (select(suite, key, value)) remember(suite, key, value);
    return value;
  } catch (const std::exception& error) {
    ZVLog::LogWarning("[KeyValueDatabase][read] {} {}/{}: {}", file_.string(), suite, key,
                      error.what());
    return std::nullopt;
  }
}

// Under mutex_. False when the database could not answer: the key's state
// is then unknown and the next read asks again.
bool KeyValueDatabase::select(std::string_view suite, std::string_view key,
                              std::optional<nlohmann::json>& value) {
  value.reset();
  StatementUse use(select_.get());
  use.bind(1, suite);
  use.bind(2, key);
  int code = sqlite3_step(select_.get());
  if (code == SQLITE_DONE) return true;
  if (code != SQLITE_ROW) {
    ZVLog::LogWarning("[KeyValueDatabase][read] {} {}/{}: {}", file_.string(), suite, key,
                      describe(connection_, code));
    return false;
  }
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(select_.get(), 0));
  auto parsed = nlohmann::json::parse(text ? text : "", nullptr, false);
  if (parsed.is_discarded()) {
    ZVLog::LogWarning("[KeyValueDatabase][read] {} {}/{}: the stored value is not JSON",
                      file_.string(), suite, key);
    return true;
  }
  value = std::move(parsed);
  return true;
}

void KeyValueDatabase::remember(std::string_view suite, std::string_view key,
                                std::optional<nlohmann::json> value) {
  // The suites hold a few dozen keys; the bound only keeps a caller asking
  // for ever new absent keys from growing the copy without end.
  std::size_t count = 0;
  for (const auto& [name, values] : known_) count += values.size();
  if (count >= kMaxKnownKeys) known_.clear();
  auto values = known_.find(suite);
  if (values == known_.end()) values = known_.emplace(std::string(suite), SuiteValues()).first;
  values->second.insert_or_assign(std::string(key), std::move(value));
}

void KeyValueDatabase::forget(std::string_view suite, std::string_view key) {
  auto values = known_.find(suite);
  if (values == known_.end()) return;
  if (auto known = values->second.find(key); known != values->second.end())
    values->second.erase(known);
}

bool KeyValueDatabase::write(std::string_view suite, std::string_view key,
                             const nlohmann::json& value) noexcept {
  try {
    // dump() writes NaN and infinities as null, which would read back as a
    // different value; null itself means "no value" and is removal's job.
    std::string text = value.dump();
    if (text == "null") {
      ZVLog::LogWarning("[KeyValueDatabase][write] {} {}/{}: refused a value without JSON text",
                        file_.string(), suite, key);
      return false;
    }
    std::lock_guard lock(mutex_);
    // Whatever happens, the old copy no longer counts: a failed statement
    // may or may not have changed the row.
    forget(suite, key);
    if (!execute(upsert_.get(), "write", suite, key, &text)) return false;
    // Kept as a read would give it back (a positive integer parses as
    // unsigned, for one).
    remember(suite, key, nlohmann::json::parse(text));
    return true;
  } catch (const std::exception& error) {
    ZVLog::LogWarning("[KeyValueDatabase][write] {} {}/{}: {}", file_.string(), suite, key,
                      error.what());
    return false;
  }
}

bool KeyValueDatabase::remove(std::string_view suite, std::string_view key) noexcept {
  try {
    std::lock_guard lock(mutex_);
    forget(suite, key);
    if (!execute(delete_.get(), "remove", suite, key, nullptr)) return false;
    remember(suite, key, std::nullopt);
    return true;
  } catch (const std::exception& error) {
    ZVLog::LogWarning("[KeyValueDatabase][remove] {} {}/{}: {}", file_.string(), suite, key,
                      error.what());
    return false;
  }
}

std::vector<std::pair<std::string, nlohmann::json>> KeyValueDatabase::entries(
    std::string_view suite) noexcept {
  std::vector<std::pair<std::string, nlohmann::json>> found;
  try {
    std::lock_guard lock(mutex_);
    sqlite3_stmt* raw = nullptr;
    int code = sqlite3_prepare_v2(connection_,
                                  "SELECT key, value FROM defaults WHERE suite = ?1 ORDER BY key",
                                  -1, &raw, nullptr);
    Statement statement(raw);
    if (code == SQLITE_OK) {
      StatementUse use(raw);
      use.bind(1, suite);
      while ((code = sqlite3_step(raw)) == SQLITE_ROW) {
        const auto* key = reinterpret_cast<const char*>(sqlite3_column_text(raw, 0));
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(raw, 1));
        auto value = nlohmann::json::parse(text ? text : "", nullptr, false);
        if (value.is_discarded() || !key) {
          ZVLog::LogWarning("[KeyValueDatabase][entries] {} {}: a stored value is not JSON",
                            file_.string(), suite);
          continue;
        }
        found.emplace_back(key, std::move(value));
      }
    }
    if (code != SQLITE_DONE) {
      ZVLog::LogWarning("[KeyValueDatabase][entries] {} {}: {}", file_.string(), suite,
                        describe(connection_, code));
    }
  } catch (const std::exception& error) {
    ZVLog::LogWarning("[KeyValueDatabase][entries] {} {}: {}", file_.string(), suite, error.what());
  }
  return found;
}

bool KeyValueDatabase::execute(sqlite3_stmt* statement, std::string_view operation,
                               std::string_view suite, std::string_view key,
                               const std::string* text) {
  StatementUse use(statement);
  use.bind(1, suite);
  use.bind(2, key);
  if (text) use.bind(3, *text);
  // Outside an explicit transaction the statement commits on its own, so
  // SQLITE_DONE means the change is durable.
  int code = sqlite3_step(statement);
  if (code == SQLITE_DONE) return true;
  ZVLog::LogWarning("[KeyValueDatabase][{}] {} {}/{}: {}", operation, file_.string(), suite, key,
                    describe(connection_, code));
  return false;
}

}  // namespace zivora::platform
