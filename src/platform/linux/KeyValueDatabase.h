#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/KeyValueStore.h"

struct sqlite3;
struct sqlite3_stmt;

namespace zivora::platform {

// The one file behind every user-defaults suite: a SQLite database with one
// table keyed by (suite, key) whose values are JSON texts, so a value keeps
// its type (string, integer, double, boolean, array, object).
//
// Every write is its own committed transaction (WAL, synchronous=FULL): a
// setter returns only once its value is on disk, and a failed write is
// logged and answered with false, never dropped silently. One connection
// serves all threads behind a mutex.
//
// Values read or written are kept parsed in memory, so a repeated read costs
// a lookup and a copy instead of a select and a JSON parse. The copy follows
// every write and removal made through this object; a write that fails drops
// it, so the next read asks the database again. Another process (or another
// connection) writing the same file is not seen by a key already in memory:
// each process owns its data root, and one database object serves it.
class KeyValueDatabase final : public KeyValueStore {
 public:
  // Opens (creating if needed) the database at `file` and its directory.
  // A file that is not a database or is corrupt is logged, moved aside as
  // "<file>.corrupt-<timestamp>" with its -wal and -shm, and recreated. Any
  // other failure (permissions, I/O, a directory or a regular file in the
  // way) is logged and gives nullptr: the store is absent. Never throws.
  static std::shared_ptr<KeyValueDatabase> open(const std::filesystem::path& file) noexcept;

  ~KeyValueDatabase() override;
  KeyValueDatabase(const KeyValueDatabase&) = delete;
  KeyValueDatabase& operator=(const KeyValueDatabase&) = delete;

  // The value under (suite, key); nullopt when there is none or it cannot
  // be read (logged).
  std::optional<nlohmann::json> read(std::string_view suite,
                                     std::string_view key) noexcept override;
  // True once the value is committed; false (logged) otherwise. Null and
  // values that have no JSON text (NaN, invalid UTF-8) are refused.
  bool write(std::string_view suite, std::string_view key,
             const nlohmann::json& value) noexcept override;
  // True once the key is gone (also when it was not there).
  bool remove(std::string_view suite, std::string_view key) noexcept override;
  // Every key of `suite` with its value, by key; a value that is not JSON
  // is left out (logged), and a failed read answers what was read so far.
  std::vector<std::pair<std::string, nlohmann::json>> entries(
      std::string_view suite) noexcept override;

  const std::filesystem::path& file() const { return file_; }

 private:
  struct StatementDeleter {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, StatementDeleter>;

  KeyValueDatabase(std::filesystem::path file, sqlite3* connection);

  // What is known of one suite's keys: a value, or nullopt for a key the
  // database does not hold.
  using SuiteValues = std::map<std::string, std::optional<nlohmann::json>, std::less<>>;

  bool prepareStatements();
  bool select(std::string_view suite, std::string_view key, std::optional<nlohmann::json>& value);
  // Under mutex_. Keeps `value` as the key's known state.
  void remember(std::string_view suite, std::string_view key, std::optional<nlohmann::json> value);
  // Under mutex_. Forgets what is known of the key.
  void forget(std::string_view suite, std::string_view key);
  // Runs a prepared write statement with (suite, key[, text]) bound.
  bool execute(sqlite3_stmt* statement, std::string_view operation, std::string_view suite,
               std::string_view key, const std::string* text);

  std::filesystem::path file_;
  std::mutex mutex_;
  sqlite3* connection_;
  Statement select_;
  Statement upsert_;
  Statement delete_;
  std::map<std::string, SuiteValues, std::less<>> known_;
};

}  // namespace zivora::platform
