// The record of all frames, one line each: time of CLOCK_MONOTONIC in seconds, direction, bytes.
// Thread-safe. Buffered: lines reach the file with flush and when the recorder is destroyed.

#ifndef NORVA_DASUNIT_RECORDER_H_
#define NORVA_DASUNIT_RECORDER_H_

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>
#include <span>
#include <string>

namespace norva::dasunit {

enum class Direction { kRequest, kReply, kAlarm };

class Recorder {
 public:
  /// Records into the emptied file `path`; an empty path records nothing. Throws InputError.
  explicit Recorder(const std::string& path);

  static timespec now();
  void record(Direction direction, const timespec& time, std::span<const std::uint8_t> frame);
  void flush();

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  std::mutex mutex_;  // keeps lines whole and in order
  std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_RECORDER_H_
