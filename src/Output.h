// Standard output: everything the agent prints goes through here. Two process-wide objects, made on
// first use and never freed; any thread may print.
//
// Printing does not wait for the reader: the text goes into a buffer in memory, and one writer
// thread empties it. A live reader has the text within kDelay, a terminal at once. A thread that
// prints faster than the writer writes is held up, by kPatience at most, the main thread never.
// After that, text without room is dropped up to the start of a later line, without holding anybody
// up; once the reader reads again, a line tells how many bytes were lost. What a full disk or a
// reader that is gone did not take counts too. A text larger than the buffer is taken while nothing
// else waits.
//
// Printing makes no system call while output keeps coming; after kQuiet without any, the next text
// wakes the writer. What succeeds is printed through Trace, which can be switched off.

#ifndef NORVA_OUTPUT_H_
#define NORVA_OUTPUT_H_

#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>

#include "Worker.h"

namespace norva {

class Output : private Worker {
 public:
  static constexpr std::size_t kCapacity = 256 * 1024;  ///< bytes that may wait for the reader
  static constexpr std::chrono::milliseconds kDelay{50};
  static constexpr std::chrono::milliseconds kQuiet{1000};
  static constexpr std::chrono::milliseconds kPatience{100};

  /// As std::printf and std::puts.
  [[gnu::format(printf, 1, 2)]] static void print(const char* format, ...);
  [[gnu::format(printf, 1, 0)]] static void vprint(const char* format, std::va_list arguments);
  static void puts(std::string_view line) { getInstance().write(line, "\n"); }

  /// The process-wide instances: standard output, and standard error for what the library logs.
  static Output& getInstance();
  static Output& standardError();

  /// Writes to `fd`, at the latest `delay` after the text was printed.
  explicit Output(int fd, std::chrono::milliseconds delay = kDelay);

  /// Starts the writer. Until then what is printed waits for `drain`. Main thread, once. Where the
  /// system refuses the thread, which is printed, whoever prints writes it too.
  void start();

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
    return settled() || _pending.size() + _writing.size() + size <= kCapacity;
  }
  void waitForRoom(std::unique_lock<std::mutex>& lock, std::size_t size);
  bool settled() const { return _pending.empty() && _writing.empty(); }
  /// False when something could not be written; what was printed meanwhile is dropped with it.
  bool takeAndWrite(std::unique_lock<std::mutex>& lock);
  void appendNotice();
  void drop(std::size_t size);

  /// The line about dropped bytes, within the text that waits; `count` is 0 where there is none.
  struct Notice {
    std::size_t begin = 0, end = 0, count = 0;
    /// Bytes lost with a text of `size` bytes from `from` on, the notice's own left out.
    std::size_t lost(std::size_t from, std::size_t size) const;
    /// What is not told then.
    std::size_t untold(std::size_t from) const { return from < end ? count : 0; }
  };
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
  int _heldUp = 0;                   // printers that wait
  std::string _pending;              // printed, not yet taken by the writer
  std::string _writing;              // taken by the writer; it alone changes the text
  bool _asleep = false;              // the writer waits until it is woken
  bool _lineIsOpen = false;          // what was printed last, kept or dropped, ended no line
  bool _keptLineIsOpen = false;      // the same of what was kept
  bool _writtenLineIsOpen = false;   // the same of what the reader has got
  std::size_t _dropped = 0;          // bytes since the last notice
  Notice _notice;                    // in _pending
};

}  // namespace norva

#endif  // NORVA_OUTPUT_H_
