#include "Output.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "AgentStatistics.h"

namespace norva {

namespace {

/// So much text wakes the writer before its time.
constexpr std::size_t kHurry = Output::kCapacity / 4;

/// Rounds without text after which the writer waits to be woken.
constexpr int kQuietRounds = static_cast<int>(Output::kQuiet / Output::kDelay);

}  // namespace

void Output::print(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  vprint(format, arguments);
  va_end(arguments);
}

void Output::vprint(const char* format, std::va_list arguments) {
  std::array<char, 512> text;
  std::va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
  if (length >= static_cast<int>(text.size())) {
    std::string longText(static_cast<std::size_t>(length) + 1, '\0');
    std::vsnprintf(longText.data(), longText.size(), format, again);
    longText.pop_back();
    getInstance().write(longText);
  } else if (length > 0) {
    getInstance().write({text.data(), static_cast<std::size_t>(length)});
  }
  va_end(again);
}

Output& Output::getInstance() {
  static auto* const instance = new Output(STDOUT_FILENO);
  return *instance;
}

Output& Output::standardError() {
  static auto* const instance = new Output(STDERR_FILENO, std::chrono::milliseconds::zero());
  return *instance;
}

Output::Output(int fd, std::chrono::milliseconds delay)
    : _fd(fd), _wakeFd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)), _delay(delay) {
  // Growing, they would leave the memory of every size that they had to the requests.
  _pending.reserve(kCapacity);
  _writing.reserve(kCapacity);
}

void Output::start() {
  if (isatty(_fd) == 1) _delay = std::chrono::milliseconds::zero();
  _started = true;
  if (startWorker()) return;
  _started = false;
  puts(kThreadRefused);
  _isRefused = true;
}

void Output::write(std::string_view text, std::string_view end) {
  const std::size_t size = text.size() + end.size();
  if (size == 0) return;
  std::unique_lock lock(_mutex);
  if (_dropped == 0 && !hasRoom(size) && _started && _mayWait) waitForRoom(lock, size);
  const bool startsLine = !_lineIsOpen;
  _lineIsOpen = (end.empty() ? text : end).back() != '\n';
  if (_dropped > 0) {
    if (!startsLine || !hasRoom(kCapacity / 2) || _notice.count > 0) {
      drop(size);
      return;
    }
    appendNotice();
  }
  if (!hasRoom(size)) {
    drop(size);
    return;
  }
  _pending.append(text).append(end);
  _keptLineIsOpen = _lineIsOpen;
  const bool isMuch = _pending.size() >= kHurry && _pending.size() - size < kHurry;
  if (std::exchange(_asleep, false) || isMuch) wakeWriter();
  if (_isRefused) {
    writeAll(_pending);
    _pending.clear();
  }
}

void Output::waitForRoom(std::unique_lock<std::mutex>& lock, std::size_t size) {
  ++_heldUp;
  _roomy.wait_for(lock, kPatience, [this, size] { return hasRoom(size) || _dropped > 0; });
  --_heldUp;
}

void Output::appendNotice() {
  _notice = {_pending.size(), 0, _dropped};
  if (_keptLineIsOpen) _pending += '\n';
  _pending += std::to_string(_dropped) + " bytes of output were dropped, nobody read them\n";
  _notice.end = _pending.size();
  _keptLineIsOpen = false;
  _dropped = 0;
}

std::size_t Output::Notice::lost(std::size_t from, std::size_t size) const {
  return size - from - (from < end ? end - std::max(from, begin) : 0);
}

void Output::drop(std::size_t size) {
  _dropped += size;
  AgentStatistics::get().outputBytesDropped.add(static_cast<std::uint32_t>(size));
}

std::size_t Output::writeAll(std::string_view text) const {
  while (!text.empty()) {
    const ssize_t written = ::write(_fd, text.data(), text.size());
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno == EAGAIN) {
      pollfd reader{_fd, POLLOUT, 0};
      poll(&reader, 1, -1);
    } else if (errno != EINTR) {
      break;
    }
  }
  return text.size();
}

bool Output::takeAndWrite(std::unique_lock<std::mutex>& lock) {
  _writing.swap(_pending);
  const Notice notice = std::exchange(_notice, {});
  lock.unlock();
  const std::size_t size = _writing.size();
  const std::size_t written = size - writeAll(_writing);
  lock.lock();
  if (written > 0) _writtenLineIsOpen = _writing[written - 1] != '\n';
  if (written < size) {
    drop(notice.lost(written, size) + _notice.lost(0, _pending.size()));
    _dropped += notice.untold(written) + _notice.untold(0);
    _pending.clear();
    _notice = {};
    _keptLineIsOpen = _writtenLineIsOpen;
  }
  _writing.clear();
  if (_writing.capacity() > 2 * kCapacity) {
    _writing.shrink_to_fit();
    _writing.reserve(kCapacity);
  }
  if (_heldUp > 0) _roomy.notify_all();
  return written == size;
}

void Output::run() {
  std::unique_lock lock(_mutex);
  const bool isImmediate = _delay == std::chrono::milliseconds::zero();
  for (int quietRounds = 0;;) {
    if (!_pending.empty()) {
      quietRounds = 0;
    } else if (isImmediate || ++quietRounds > kQuietRounds) {
      _asleep = true;
      waitToBeWoken(lock, -1);
      quietRounds = 0;
    }
    if (!isImmediate && _pending.size() < kHurry) {
      waitToBeWoken(lock, static_cast<int>(_delay.count()));
    }
    if (_pending.empty()) continue;
    const bool isTaken = takeAndWrite(lock);
    // What was dropped is told even if nothing more is printed.
    if (isTaken && _pending.empty() && _dropped > 0 && !_lineIsOpen) appendNotice();
    if (settled()) _settled.notify_all();
  }
}

void Output::waitToBeWoken(std::unique_lock<std::mutex>& lock, int milliseconds) const {
  lock.unlock();
  pollfd wakeUp{_wakeFd, POLLIN, 0};
  // Without a descriptor, which the system may have refused, the writer looks for itself.
  if (poll(&wakeUp, 1, _wakeFd < 0 ? static_cast<int>(kDelay.count()) : milliseconds) > 0) {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t size = read(_wakeFd, &count, sizeof count);
  }
  lock.lock();
}

void Output::wakeWriter() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t size = ::write(_wakeFd, &one, sizeof one);
}

bool Output::drain(std::chrono::milliseconds limit) {
  std::unique_lock lock(_mutex);
  if (!_started) {
    while (!_pending.empty()) takeAndWrite(lock);
    return true;
  }
  return _settled.wait_for(lock, limit, [this] { return settled(); });
}

}  // namespace norva
