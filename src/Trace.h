// What is printed for each request, notification and heartbeat that succeeds. It can be switched
// off; failures and start-up go to Output directly.
//
// Any thread; of static functions only, nobody owns it.

#ifndef NORVA_TRACE_H_
#define NORVA_TRACE_H_

#include <array>
#include <atomic>
#include <charconv>
#include <cstdarg>
#include <cstddef>
#include <string_view>

#include "Output.h"

namespace norva {

class Trace {
 public:
  /// On from the start.
  static void enable(bool on) { _enabled = on; }
  static bool enabled() { return _enabled.load(std::memory_order_relaxed); }

  /// As Output's.
  [[gnu::format(printf, 1, 2)]] static void print(const char* format, ...) {
    if (!enabled()) return;
    std::va_list arguments;
    va_start(arguments, format);
    Output::vprint(format, arguments);
    va_end(arguments);
  }
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

#endif  // NORVA_TRACE_H_
