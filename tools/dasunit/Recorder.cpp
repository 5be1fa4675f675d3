#include "Recorder.h"

#include <cerrno>
#include <cstring>

#include "Text.h"

namespace norva::dasunit {

namespace {

constexpr std::size_t kBufferSize = 1 << 18;

/// Indexed by Direction.
constexpr const char* kWords[] = {"rx", "tx", "alarm"};

}  // namespace

Recorder::Recorder(const std::string& path) {
  if (path.empty()) return;
  file_.reset(std::fopen(path.c_str(), "we"));
  if (!file_) throw InputError(path + ": " + std::strerror(errno));
  std::setvbuf(file_.get(), nullptr, _IOFBF, kBufferSize);
}

timespec Recorder::now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time;
}

void Recorder::record(Direction direction, const timespec& time,
                      std::span<const std::uint8_t> frame) {
  if (!file_) return;
  char head[64];
  std::snprintf(head, sizeof head, "%lld.%09ld %s", static_cast<long long>(time.tv_sec),
                time.tv_nsec, kWords[static_cast<int>(direction)]);
  std::string line = head;
  line.reserve(line.size() + 3 * frame.size() + 1);
  for (const std::uint8_t byte : frame) {
    constexpr char kDigits[] = "0123456789abcdef";
    line += ' ';
    line += kDigits[byte >> 4];
    line += kDigits[byte & 0xF];
  }
  line += '\n';
  const std::lock_guard lock(mutex_);
  std::fwrite(line.data(), 1, line.size(), file_.get());
}

void Recorder::flush() {
  const std::lock_guard lock(mutex_);
  if (file_) std::fflush(file_.get());
}

}  // namespace norva::dasunit
