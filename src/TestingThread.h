// A thread that only prints its label, for trying the thread base on a unit. Nothing creates one.

#ifndef NORVA_TESTING_THREAD_H_
#define NORVA_TESTING_THREAD_H_

#include <string>

#include "Thread.h"

namespace norva {

class TestingThread : public Thread {
 public:
  TestingThread(std::int32_t policy, std::int32_t priority, std::string label);

  /// Prints the label for ever, without a pause.
  void run() override;

 private:
  const std::string _label;
};

}  // namespace norva

#endif  // NORVA_TESTING_THREAD_H_
