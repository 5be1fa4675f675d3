#include "Thread.h"

#include <sched.h>
#include <unistd.h>

#include <utility>

#include "Output.h"

namespace norva {

Thread::Thread(std::int32_t status, std::int32_t policy, std::int32_t priority)
    : _status(status), _policy(policy), _priority(priority) {}

void Thread::run() {
  for (;;) {
    sleep(1);
    Output::puts("Thread Thread::run begin running");
  }
}

int Thread::start() {
  _status = kRunning;
  {
    const std::lock_guard lock(_handleMutex);
    pthread_t started{};
    if (pthread_create(&started, nullptr, entry, this) == 0) {
      sched_param parameters{};
      parameters.sched_priority = _priority;
      pthread_setschedparam(started, _policy, &parameters);
      pthread_detach(started);
      _thread = started;
      return 0;
    }
  }
  Output::puts("Create thread fail!");
  return -1;
}

void* Thread::entry(void* object) {
  auto* thread = static_cast<Thread*>(object);
  if (thread == nullptr) return nullptr;
  [[maybe_unused]] const int niceness = nice(thread->_priority);
  thread->run();
  const std::lock_guard lock(thread->_handleMutex);
  if (thread->_thread && pthread_equal(*thread->_thread, pthread_self()) != 0) {
    thread->_thread.reset();
  }
  return object;
}

int Thread::stop() {
  _status = kStopped;
  onStop();
  {
    // The thread cannot end before the lock is released, so the handle is good.
    const std::lock_guard lock(_handleMutex);
    const auto thread = std::exchange(_thread, std::nullopt);
    if (thread && pthread_cancel(*thread) == 0) {
      _flag = false;
      _wordA = _wordB = _wordC = 0;
      return 0;
    }
  }
  Output::puts("Delete thread error");
  return -1;
}

int Thread::markRunning() {
  _status = kRunning;
  return 0;
}

int Thread::markIdle() {
  _status = kIdle;
  return 0;
}

}  // namespace norva
