#include "receiver/facades/Properties.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <stdexcept>
#include <utility>

#include "receiver/Complaint.h"

namespace receiver {
namespace {

std::string cut(std::string text) {
  if (text.size() > Properties::longestText) text.resize(Properties::longestText);
  return text;
}

std::string column(sqlite3_stmt* statement, int index) {
  const auto* const text = static_cast<const char*>(sqlite3_column_blob(statement, index));
  return {text, static_cast<std::size_t>(sqlite3_column_bytes(statement, index))};
}

}  // namespace

void Properties::Close::operator()(sqlite3* database) const { sqlite3_close(database); }

void Properties::Close::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

Properties::Properties(const std::string& path, std::map<std::string, Getter> readOnly)
    : path_(path), readOnly_(std::move(readOnly)) {
  sqlite3* database = nullptr;
  const int result = sqlite3_open(path.c_str(), &database);
  database_.reset(database);
  if (result != SQLITE_OK) fail();
  sqlite3_busy_timeout(database, 1000);
  // Every change is on the disk before it is answered.
  step(prepare("PRAGMA journal_mode = WAL"));
  step(prepare("PRAGMA synchronous = FULL"));
  step(
      prepare("CREATE TABLE IF NOT EXISTS properties"
              " (name BLOB PRIMARY KEY, value BLOB NOT NULL) WITHOUT ROWID"));
}

void Properties::fail() const {
  throw std::runtime_error(path_ + ": " + sqlite3_errmsg(database_.get()));
}

Properties::Statement Properties::prepare(const char* text,
                                          std::initializer_list<std::string> arguments) const {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(database_.get(), text, -1, &statement, nullptr) != SQLITE_OK) fail();
  Statement prepared(statement);
  int index = 0;
  for (const std::string& argument : arguments) {
    if (sqlite3_bind_blob(statement, ++index, argument.data(), static_cast<int>(argument.size()),
                          SQLITE_TRANSIENT) != SQLITE_OK) {
      fail();
    }
  }
  return prepared;
}

bool Properties::step(const Statement& statement) const {
  const int result = sqlite3_step(statement.get());
  if (result != SQLITE_ROW && result != SQLITE_DONE) fail();
  return result == SQLITE_ROW;
}

/// A full disk is not the client's fault, and no reason to end its connection.
void Properties::reportingFailures(const std::function<void()>& action) const {
  try {
    action();
  } catch (const std::runtime_error& error) {
    complain("{}", error.what());
  }
}

void Properties::setProperty(std::string name, std::string value) {
  if (readOnly_.contains(name)) return;
  // The file is asked each time, since other programs may change it, too; no more rows are looked
  // at than may be kept. Where it has more than that, a value can still get shorter.
  static const std::string change = fmt::format(
      "INSERT OR REPLACE INTO properties SELECT ?1, ?2 WHERE"
      " (SELECT count(*) < {0} AND total(bytes) + length(?1) + length(?2) <= {1}"
      "  FROM (SELECT length(name) + length(value) AS bytes FROM properties"
      "        WHERE name <> ?1 LIMIT {0}))"
      " OR EXISTS"
      " (SELECT 1 FROM properties WHERE name = ?1 AND length(value) >= length(?2))",
      mostProperties, mostBytes);
  reportingFailures([&] {
    step(prepare(change.c_str(), {cut(std::move(name)), cut(std::move(value))}));
    const bool isKept = sqlite3_changes(database_.get()) != 0;
    if (isKept || std::exchange(hasRefused_, true)) return;
    complain(
        "the properties would be more than {} or take more than {} KiB;"
        " what is too much is left out",
        mostProperties, mostBytes >> 10U);
  });
}

std::string Properties::getProperty(std::string name) {
  if (const auto known = readOnly_.find(name); known != readOnly_.end()) return known->second();
  std::string value;
  reportingFailures([&] {
    const Statement statement =
        prepare("SELECT value FROM properties WHERE name = ?", {cut(std::move(name))});
    if (step(statement)) value = column(statement.get(), 0);
  });
  return value;
}

std::list<middlewarefacade::Property_> Properties::getProperties() {
  std::list<middlewarefacade::Property_> properties;
  for (const auto& [name, getter] : readOnly_) properties.push_back({name, getter()});
  reportingFailures([&] {
    const Statement statement = prepare("SELECT name, value FROM properties ORDER BY name");
    while (step(statement)) {
      properties.push_back({column(statement.get(), 0), column(statement.get(), 1)});
    }
  });
  return properties;
}

void Properties::removeProperty(std::string name) {
  reportingFailures(
      [&] { step(prepare("DELETE FROM properties WHERE name = ?", {cut(std::move(name))})); });
}

}  // namespace receiver
