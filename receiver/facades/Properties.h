#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include "facade/PropertyFacade.h"

struct sqlite3;
struct sqlite3_stmt;

namespace receiver {

/// The property facade on a SQLite database: what has been set is there after any end of the
/// process, also one in the middle of a change. Properties that the receiver itself answers for can
/// be read only.
class Properties : public middlewarefacade::PropertyFacade {
 public:
  using Getter = std::function<std::string()>;
  /// Longer names and values are cut, as they are on their way to the client.
  static constexpr std::size_t longestText = 254;
  /// How many are kept, and how many bytes their names and values may have together: beyond that,
  /// what a client sets is left out, which is said once on the standard error stream. What can be
  /// read only does not count.
  static constexpr std::size_t mostProperties = 1000;
  static constexpr std::size_t mostBytes = std::size_t{256} << 10U;

  /// Throws std::runtime_error with one line that names the file when it cannot be used. ":memory:"
  /// for none.
  Properties(const std::string& path, std::map<std::string, Getter> readOnly);

  void setProperty(std::string name, std::string value) override;
  std::string getProperty(std::string name) override;
  std::list<middlewarefacade::Property_> getProperties() override;
  void removeProperty(std::string name) override;

 private:
  struct Close {
    void operator()(sqlite3* database) const;
    void operator()(sqlite3_stmt* statement) const;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, Close>;

  [[nodiscard]] Statement prepare(const char* text,
                                  std::initializer_list<std::string> arguments = {}) const;
  /// False at the end of the rows.
  bool step(const Statement& statement) const;
  [[noreturn]] void fail() const;
  void reportingFailures(const std::function<void()>& action) const;

  const std::string path_;
  const std::map<std::string, Getter> readOnly_;
  std::unique_ptr<sqlite3, Close> database_;
  bool hasRefused_ = false;
};

}  // namespace receiver
