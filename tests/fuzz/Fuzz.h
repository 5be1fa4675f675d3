// What the fuzz targets share: the input as a stream of values, message queues in memory in place
// of the system's, and the end of the program where something is not as it must be.
//
// One thread, but for what the agent starts itself.

#ifndef NORVA_TESTS_FUZZ_FUZZ_H_
#define NORVA_TESTS_FUZZ_FUZZ_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

// The condition is what must hold for any input at all.
#define MUST(condition)                                                            \
  do {                                                                             \
    if (!(condition)) {                                                            \
      std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition); \
      std::abort();                                                                \
    }                                                                              \
  } while (false)

namespace norva::fuzz {

using Bytes = std::vector<std::uint8_t>;

/// The input, taken from its start; zeros behind its end.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : _next(data), _end(data + size) {}

  bool empty() const { return _next == _end; }
  std::uint8_t byte() { return empty() ? std::uint8_t{0} : *_next++; }
  std::uint16_t word() { return static_cast<std::uint16_t>(byte() << 8 | byte()); }
  /// At most `most` bytes in memory of their own, so that every read behind them is seen.
  Bytes bytes(std::size_t most);
  /// The same of what is left.
  std::string rest() const { return {_next, _end}; }
  /// As `bytes` with the length in front: a byte, in fours from 200 on, so that it reaches 1,100.
  Bytes message();

 private:
  const std::uint8_t* _next;
  const std::uint8_t* _end;
};

/// The three queues, by key. Stand in for msgget, msgsnd, msgrcv and msgctl in the whole program.
struct Queues {
  std::map<int, std::deque<Bytes>> waiting;
  /// Called for every message that is sent, which is not kept. Returns false when the queue fails.
  std::function<bool(int key, const Bytes& message)> sent;
  /// Called when a message is waited for and none is there; then the wait fails. May throw.
  std::function<void(int key)> exhausted;

  static Queues& get();
};

/// What a target does with an input. Called with empty queues; what the agent prints is dropped.
void run(Input input);

}  // namespace norva::fuzz

#endif  // NORVA_TESTS_FUZZ_FUZZ_H_
