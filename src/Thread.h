// Base of the alarm, heartbeat and supervisor threads: one POSIX thread whose body is `run`.
// Objects are made and started by the main thread and live until the process ends.
//
// Fields are plain per-thread values without a lock, the status excepted, which the thread itself
// reads. What the agent needs threads for beside, a writer or a timer, is a Worker.

#ifndef NORVA_THREAD_H_
#define NORVA_THREAD_H_

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace norva {

class Thread {
 public:
  /// Life state of a thread.
  enum Status : std::int32_t { kIdle = 0, kRunning = 1, kStopped = 2 };

  /// `policy` goes to pthread_setschedparam; `priority` is both its sched_priority and the nice
  /// increment of the new thread.
  Thread(std::int32_t status, std::int32_t policy, std::int32_t priority);
  virtual ~Thread() = default;
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// The thread's body, on the new thread; in every class of the process it never returns.
  virtual void run();

  /// Starts the thread, detached. 0, or -1 after printing when the system refuses. A second start
  /// makes a second thread that runs the same `run` on the same object; it is the one that `stop`
  /// ends.
  virtual int start();

  /// Calls onStop, then cancels the thread at its next cancellation point. 0 with flag and words
  /// cleared, or -1 after printing when there is no thread, or no longer.
  virtual int stop();

  virtual std::string getName() const { return _name; }
  virtual bool getFlag() const { return _flag; }
  virtual std::int32_t getWordA() const { return _wordA; }
  virtual std::int32_t getWordB() const { return _wordB; }
  virtual void setWordB(std::int32_t word) { _wordB = word; }
  virtual void onStop() {}
  virtual std::int32_t getWordC() const { return _wordC; }
  virtual void setWordC(std::int32_t word) { _wordC = word; }

  /// Called by every creator right after start; 0.
  int markRunning();
  int markIdle();
  std::int32_t status() const { return _status; }

 private:
  static void* entry(void* object);

  std::atomic<std::int32_t> _status;
  bool _flag = false;
  std::string _name;
  std::int32_t _wordA = 0;
  std::int32_t _wordB = 0;
  std::int32_t _wordC = 0;
  std::mutex _handleMutex;  // guards _thread; held by a thread that ends while it forgets it
  std::optional<pthread_t> _thread;  // started last; none when it has ended or was stopped
  const std::int32_t _policy;
  const std::int32_t _priority;
};

}  // namespace norva

#endif  // NORVA_THREAD_H_
