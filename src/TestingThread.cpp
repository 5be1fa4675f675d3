#include "TestingThread.h"

#include <cstdio>
#include <utility>

namespace norva {

TestingThread::TestingThread(std::int32_t policy, std::int32_t priority, std::string label)
    : Thread(kRunning, policy, priority), _label(std::move(label)) {}

void TestingThread::run() {
  for (;;) std::printf("testing thread %s running.........................\n", _label.c_str());
}

}  // namespace norva
