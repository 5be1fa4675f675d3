// A thread of the agent's own housekeeping: the writers of the output, the timer of replies, the
// end of the process. Derive from it, start it once; the object lives until the process ends.
//
// `start` on any thread, `run` on the new one, which nobody stops.

#ifndef NORVA_WORKER_H_
#define NORVA_WORKER_H_

#include <pthread.h>

namespace norva {

/// The line that tells of a thread that the system refused.
inline constexpr char kThreadRefused[] = "Create thread fail!";

class Worker {
 public:
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

 protected:
  Worker() = default;
  ~Worker() = default;

  /// Runs `run` on a new, detached thread. False, with nothing printed, when the system refuses it.
  bool startWorker() {
    const auto entry = [](void* worker) -> void* {
      static_cast<Worker*>(worker)->run();
      return nullptr;
    };
    pthread_t started{};
    if (pthread_create(&started, nullptr, entry, this) != 0) return false;
    pthread_detach(started);
    return true;
  }

 private:
  virtual void run() = 0;
};

}  // namespace norva

#endif  // NORVA_WORKER_H_
