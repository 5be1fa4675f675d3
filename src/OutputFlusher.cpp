#include "OutputFlusher.h"

#include <cstdio>
#include <thread>

namespace norva {

OutputFlusher& OutputFlusher::getInstance() {
  static OutputFlusher* const instance = [] {
    auto* flusher = new OutputFlusher;
    flusher->start();
    flusher->markRunning();
    return flusher;
  }();
  return *instance;
}

OutputFlusher::OutputFlusher() : Thread(kRunning, 0, 0) {}

void OutputFlusher::soon() {
  if (!_pending.exchange(true)) _pending.notify_one();
}

void OutputFlusher::run() {
  for (;;) {
    _pending.wait(false);
    std::this_thread::sleep_for(kDelay);
    _pending = false;  // before the flush, so that what is printed during it asks anew
    std::fflush(stdout);
  }
}

}  // namespace norva
