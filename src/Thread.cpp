#include "Thread.h"

#include <sched.h>
#include <unistd.h>

#include <cstdio>

namespace norva {

Thread::Thread(std::int32_t status, std::int32_t policy, std::int32_t priority)
    : _status(status), _policy(policy), _priority(priority) {}

void Thread::run() {
  for (;;) {
    sleep(1);
    std::puts("Thread Thread::run begin running");
  }
}

int Thread::start() {
  _status = kRunning;
  _alive = true;
  if (pthread_create(&_thread, nullptr, entry, this) != 0) {
    _alive = false;
    std::puts("Create thread fail!");
    return -1;
  }
  sched_param parameters{};
  parameters.sched_priority = _priority;
  pthread_setschedparam(_thread, _policy, &parameters);
  return 0;
}

void* Thread::entry(void* object) {
  auto* thread = static_cast<Thread*>(object);
  if (thread == nullptr) return nullptr;
  [[maybe_unused]] const int niceness = nice(thread->_priority);
  thread->run();
  thread->_alive = false;
  return object;
}

int Thread::stop() {
  _status = kStopped;
  onStop();
  const bool alive = _alive.exchange(false);
  if (alive) pthread_detach(_thread);
  if (!alive || pthread_cancel(_thread) != 0) {
    std::puts("Delete thread error");
    return -1;
  }
  _flag = false;
  _wordA = _wordB = _wordC = 0;
  return 0;
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
