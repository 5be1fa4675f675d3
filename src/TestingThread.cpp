#include "TestingThread.h"

#include <utility>

#include "Output.h"

namespace norva {

TestingThread::TestingThread(std::int32_t policy, std::int32_t priority, std::string label)
    : Thread(kRunning, policy, priority), _label(std::move(label)) {}

void TestingThread::run() {
  for (;;) Output::print("testing thread %s running.........................\n", _label.c_str());
}

}  // namespace norva
