// Brings standard output to its reader in time.
//
// The agent traces every request, so standard output stays fully buffered into a pipe or a file:
// line buffering would cost a write per line on the request path. Whoever is about to wait for work
// calls `soon`, and what was printed leaves within kDelay: at the price of one system call per
// kDelay while output keeps coming, and of none while there is none.

#ifndef NORVA_OUTPUT_FLUSHER_H_
#define NORVA_OUTPUT_FLUSHER_H_

#include <atomic>
#include <chrono>

#include "Thread.h"

namespace norva {

class OutputFlusher : public Thread {
 public:
  static constexpr std::chrono::milliseconds kDelay{50};

  /// The process-wide instance, started on the first call, which belongs to start-up.
  static OutputFlusher& getInstance();

  /// What has been printed so far is flushed within kDelay. Any thread; never blocks.
  void soon();

  void run() override;

 private:
  OutputFlusher();

  std::atomic<bool> _pending = false;
};

}  // namespace norva

#endif  // NORVA_OUTPUT_FLUSHER_H_
