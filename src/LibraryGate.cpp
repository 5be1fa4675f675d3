#include "LibraryGate.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "AgentLibrary.h"
#include "Output.h"

namespace norva {

namespace {

/// At a time, in a device wait. What the master may owe limits it first.
constexpr std::size_t kMostInDeviceWait = 1000;

/// A thread that is stopped in the middle of the library would leave it in pieces.
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
  const auto wakeUp = [](int, void* gate) { static_cast<LibraryGate*>(gate)->lendOnce(); };
  if (register_readfd(_wakeFd, wakeUp, this) != FD_REGISTERED_OK) {
    Output::puts("LibraryGate: the library takes no wake-up descriptor");
    close(_wakeFd);
    _wakeFd = -1;
    return -1;
  }
  if (_waiting > 0) wakeMainThread();
  return 0;
}

void LibraryGate::wakeMainThread() {
  if (_wakePending || _wakeFd < 0) return;
  const std::uint64_t one = 1;
  _wakePending = write(_wakeFd, &one, sizeof one) == sizeof one;
}

void LibraryGate::announce() {
  if (workDuringWait()) return;
  const std::lock_guard lock(_mutex);
  wakeMainThread();
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
    _work->perform(kMostInDeviceWait);
    giveBack();
  } while (_work->isWaiting());
  return true;
}

void LibraryGate::beginDeviceWait() {
  if (_work != nullptr) _work->deviceWait(true);
  {
    const std::lock_guard lock(_mutex);
    _deviceWait = true;
  }
  // What was announced before can expect nobody else to do it during the wait.
  if (_work != nullptr && _work->isWaiting()) workDuringWait();
}

void LibraryGate::endDeviceWait() {
  {
    std::unique_lock lock(_mutex);
    _deviceWait = false;
    _returned.wait(lock, [this] { return !_borrowed; });
  }
  if (_work != nullptr) _work->deviceWait(false);
}

void LibraryGate::lendOnce() {
  std::unique_lock lock(_mutex);
  std::uint64_t wakeUps = 0;
  [[maybe_unused]] const ssize_t size = read(_wakeFd, &wakeUps, sizeof wakeUps);
  _wakePending = false;
  if (_waiting == 0) return;

  _offered = true;
  _lent.notify_all();
  // A borrower whose limit runs out now leaves nobody waiting: the offer is withdrawn.
  _returned.wait(lock, [this] { return !_borrowed && (!_offered || _waiting == 0); });
  _offered = false;
  if (_waiting > 0) wakeMainThread();
}

bool LibraryGate::borrow(std::chrono::milliseconds limit) {
  const NoCancellation whole;
  std::unique_lock lock(_mutex);
  ++_waiting;
  wakeMainThread();
  const bool held = _lent.wait_for(lock, limit, [this] { return _offered && !_borrowed; });
  --_waiting;
  if (held) {
    _borrowed = true;
    _offered = false;
  } else {
    _returned.notify_one();
  }
  return held;
}

void LibraryGate::giveBack() {
  const std::lock_guard lock(_mutex);
  _borrowed = false;
  _returned.notify_one();
}

}  // namespace norva
