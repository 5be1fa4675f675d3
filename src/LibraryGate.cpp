#include "LibraryGate.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>

#include "AgentLibrary.h"
#include "Output.h"

namespace norva {

namespace {

/// A thread that is stopped while it is inside the library would leave it half changed.
class NoCancellation {
 public:
  NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &_before); }
  ~NoCancellation() { pthread_setcancelstate(_before, nullptr); }
  NoCancellation(const NoCancellation&) = delete;
  NoCancellation& operator=(const NoCancellation&) = delete;

 private:
  int _before = PTHREAD_CANCEL_ENABLE;
};

}  // namespace

LibraryGate& LibraryGate::getInstance() {
  static auto* const instance = new LibraryGate;
  return *instance;
}

int LibraryGate::open() {
  const std::lock_guard lock(_mutex);
  _wakeFd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (_wakeFd < 0) {
    Output::print("LibraryGate: no wake-up descriptor: %s\n", std::strerror(errno));
    return -1;
  }
  const auto wakeUp = [](int, void* gate) { static_cast<LibraryGate*>(gate)->wakeUpSeen(); };
  if (register_readfd(_wakeFd, wakeUp, this) != FD_REGISTERED_OK) {
    Output::puts("LibraryGate: the library takes no wake-up descriptor");
    close(_wakeFd);
    _wakeFd = -1;
    return -1;
  }
  return 0;
}

void LibraryGate::performWork(std::size_t most) {
  if (_endIsDue) _end();
  _work->perform(most);
}

void LibraryGate::announce() {
  if (!workDuringWait()) wakeMainThread();
}

void LibraryGate::announceEnd(bool isDue) {
  _endIsDue = isDue;
  if (isDue) wakeMainThread();
}

void LibraryGate::wakeMainThread() {
  const std::lock_guard lock(_mutex);
  if (_wakePending || _wakeFd < 0) return;
  const std::uint64_t one = 1;
  _wakePending = write(_wakeFd, &one, sizeof one) == sizeof one;
}

void LibraryGate::wakeUpSeen() {
  const std::lock_guard lock(_mutex);
  std::uint64_t wakeUps = 0;
  [[maybe_unused]] const ssize_t size = read(_wakeFd, &wakeUps, sizeof wakeUps);
  _wakePending = false;
}

bool LibraryGate::workDuringWait() {
  const NoCancellation whole;
  do {
    {
      const std::lock_guard lock(_mutex);
      if (!_deviceWait) return false;
      if (_borrowed) return true;  // whoever has it looks for work again when done
      _borrowed = true;
    }
    _work->perform(std::numeric_limits<std::size_t>::max());
    const std::lock_guard lock(_mutex);
    _borrowed = false;
    _returned.notify_one();
  } while (_work->hasWork());
  return true;
}

void LibraryGate::beginDeviceWait() {
  if (_work != nullptr) _work->deviceWait(true);
  {
    const std::lock_guard lock(_mutex);
    _deviceWait = true;
  }
  // What was announced before can expect nobody else to do it during the wait.
  if (_work != nullptr && _work->hasWork()) workDuringWait();
}

void LibraryGate::endDeviceWait() {
  {
    std::unique_lock lock(_mutex);
    _deviceWait = false;
    _returned.wait(lock, [this] { return !_borrowed; });
  }
  if (_work != nullptr) _work->deviceWait(false);
}

}  // namespace norva
