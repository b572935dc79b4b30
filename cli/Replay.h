#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "cli/Recording.h"
#include "cli/TraceLine.h"

namespace quillwork::cli {

/// What one channel of a recording says: each request with what the library has sent from then on
/// until the next one, its reply included.
class ReplayScript {
 public:
  /// The next line of the recording. False for one behind which nothing can be replayed.
  [[nodiscard]] bool add(const TraceLine& line);

  /// Where the so many-th connection begins; the recording's last one follows itself.
  [[nodiscard]] std::size_t begin(std::size_t connection) const;
  /// What the library has sent in it before the first request.
  [[nodiscard]] const std::string& greeting(std::size_t connection) const;
  /// What the library has sent for the next request of these bytes, from a position on and then
  /// from the recording's beginning; the position is then behind it. Null when there is none.
  [[nodiscard]] const std::string* answer(std::string_view request, std::size_t& position) const;

 private:
  struct Exchange {
    std::string request;
    std::string answer;
  };
  struct Connection {
    std::size_t begin = 0;
    std::string greeting;
  };

  void connect();
  std::string& answerTo(std::size_t request);
  [[nodiscard]] const Connection* find(std::size_t connection) const;

  std::vector<Connection> connections_;
  std::vector<Exchange> exchanges_;
  /// The last connection's exchanges by their requests' numbers.
  std::map<std::size_t, std::size_t> numbers_;
};

/// A receiver made of a recording: answers a request as it was answered there, at once.
class Replay {
 public:
  /// Throws Refusal for what is no recording.
  explicit Replay(const std::string& recording);

  /// Serves clients at both sockets until one of the EndingSignals, which ends the process. Throws
  /// Refusal when somebody else serves there.
  void serve();

 private:
  void serve(TraceChannel channel, int listening) const;
  void play(TraceChannel channel, int client, std::size_t connection) const;

  std::array<ReplayScript, 2> scripts_;
};

}  // namespace quillwork::cli
