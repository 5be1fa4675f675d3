// Standard output: everything the agent prints goes through here.
//
// Whoever prints does not wait for the reader: the text goes into a buffer in memory, from which
// one writer thread takes it. A live reader has it within kDelay, a terminal at once. Who prints
// faster than the writer writes is held up, for kPatience at most and never on the main thread.
// Then text that finds no room is dropped, from one line to a later one, without holding anybody
// up, and a line says how many bytes that were once the reader reads again. A reader that is gone
// costs his output only.
//
// Output is for what happens seldom: start-up, failures. Trace is for what a request, a
// notification or a heartbeat prints while all is well, and can be switched off.
//
// Any thread. Printing makes no system call while output keeps coming; after kQuiet without any,
// the next text wakes the writer.

#ifndef NORVA_OUTPUT_H_
#define NORVA_OUTPUT_H_

#include <array>
#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

#include "Thread.h"

namespace norva {

class Output : private Thread {
 public:
  static constexpr std::size_t kCapacity = 256 * 1024;  ///< bytes that may wait for the reader
  static constexpr std::chrono::milliseconds kDelay{50};
  static constexpr std::chrono::milliseconds kQuiet{1000};
  static constexpr std::chrono::milliseconds kPatience{100};

  /// As std::printf and std::puts.
  [[gnu::format(printf, 1, 2)]] static void print(const char* format, ...);
  static void puts(std::string_view line) { getInstance().write(line, "\n"); }

  /// The process-wide instances: standard output, and standard error for what the library logs.
  static Output& getInstance();
  static Output& standardError();

  /// Writes to `fd`, at the latest `delay` after the text was printed.
  explicit Output(int fd, std::chrono::milliseconds delay = kDelay);

  /// Starts the writer. Until then what is printed waits for `drain`. Main thread, once. 0, or -1
  /// when the system refuses a thread: whoever prints then writes himself.
  int start() override;

  /// The calling thread is never held up from now on.
  static void neverWait() { _mayWait = false; }

  /// `text`, then `end`.
  void write(std::string_view text, std::string_view end = {});

  /// Waits, at most for `limit`, until all that was printed has reached the reader, and tells
  /// whether it has. Without a writer the caller writes, however long it takes.
  bool drain(std::chrono::milliseconds limit);

 private:
  void run() override;

  /// The functions below REQUIRE that the lock is held; takeAndWrite releases it meanwhile.
  bool hasRoom(std::size_t size) const {
    return _pending.size() + _writing.size() + size <= kCapacity;
  }
  void waitForRoom(std::unique_lock<std::mutex>& lock, std::size_t size);
  bool settled() const { return _pending.empty() && _writing.empty(); }
  /// False when something could not be written.
  bool takeAndWrite(std::unique_lock<std::mutex>& lock);
  void appendNotice();
  /// Releases the lock and waits, without limit if `milliseconds` is negative.
  void waitToBeWoken(std::unique_lock<std::mutex>& lock, int milliseconds) const;
  void wakeWriter() const;
  /// The number of bytes that `text` has behind what could be written.
  std::size_t writeAll(std::string_view text) const;

  const int _fd;
  const int _wakeFd;                 // readable once the writer is to be woken
  std::chrono::milliseconds _delay;  // zero: each text wakes the writer
  bool _started = false;
  bool _isRefused = false;  // there is no writer
  static inline thread_local bool _mayWait = true;
  std::mutex _mutex;                 // guards all below
  std::condition_variable _settled;  // drain waits for the writer
  std::condition_variable _roomy;    // printers wait for the writer
  int _waiting = 0;                  // printers that do
  std::string _pending;              // printed, not yet taken by the writer
  std::string _writing;              // taken by the writer; it alone changes the text
  bool _asleep = false;              // the writer waits until it is woken
  bool _lineIsOpen = false;          // what was printed last, kept or dropped, ended no line
  bool _keptLineIsOpen = false;      // the same of what was kept
  std::size_t _dropped = 0;          // bytes since the last notice
};

/// What is printed for each request, notification and heartbeat that succeeds.
class Trace {
 public:
  /// On from the start.
  static void enable(bool on) { _enabled = on; }
  static bool enabled() { return _enabled.load(std::memory_order_relaxed); }

  [[gnu::format(printf, 1, 2)]] static void print(const char* format, ...);
  static void puts(std::string_view line) {
    if (enabled()) Output::puts(line);
  }
  static void write(std::string_view text) {
    if (enabled()) Output::getInstance().write(text);
  }

 private:
  static inline std::atomic<bool> _enabled = true;
};

/// One piece of the trace, put together without the reading of a format, which would be a third of
/// what the agent adds to a request. As std::printf's %s, %x and %d; what is beyond kSize
/// characters is left out.
class TraceLine {
 public:
  static constexpr std::size_t kSize = 128;

  TraceLine& text(std::string_view text) {
    _end += text.copy(_end, static_cast<std::size_t>(_text.end() - _end));
    return *this;
  }
  TraceLine& hex(unsigned number) { return append(std::to_chars(_end, _text.end(), number, 16)); }
  TraceLine& decimal(int number) { return append(std::to_chars(_end, _text.end(), number)); }
  void print() const { Trace::write({_text.begin(), _end}); }

 private:
  TraceLine& append(std::to_chars_result written) {
    if (written.ec == std::errc()) _end = written.ptr;
    return *this;
  }

  std::array<char, kSize> _text;
  char* _end = _text.begin();
};

}  // namespace norva

#endif  // NORVA_OUTPUT_H_
