// Tells people that a database is still being read. For the thread that reads.

#ifndef NORVA_SLOW_READING_H_
#define NORVA_SLOW_READING_H_

#include <sqlite3.h>

#include <chrono>
#include <functional>
#include <utility>

namespace norva {

/// While it lives: once `patience` is over and SQLite is at work on the connection, `say` is
/// called, once. REQUIRES: no other progress handler on the connection.
class SlowReading {
 public:
  SlowReading(sqlite3* connection, std::chrono::milliseconds patience, std::function<void()> say)
      : _connection(connection),
        _due(std::chrono::steady_clock::now() + patience),
        _say(std::move(say)) {
    sqlite3_progress_handler(_connection, kSteps, look, this);
  }
  ~SlowReading() { sqlite3_progress_handler(_connection, 0, nullptr, nullptr); }
  SlowReading(const SlowReading&) = delete;
  SlowReading& operator=(const SlowReading&) = delete;

 private:
  static constexpr int kSteps = 100;  ///< of SQLite's machine, between two looks at the clock

  static int look(void* context) {
    auto& self = *static_cast<SlowReading*>(context);
    if (self._say && std::chrono::steady_clock::now() >= self._due) {
      std::exchange(self._say, nullptr)();
    }
    return 0;  // go on
  }

  sqlite3* const _connection;
  const std::chrono::steady_clock::time_point _due;
  std::function<void()> _say;
};

}  // namespace norva

#endif  // NORVA_SLOW_READING_H_
