#include "LibraryGate.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "AgentLibrary.h"
#include "Output.h"

namespace norva {

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

void LibraryGate::beginTurn(int unacknowledged) {
  const int loans = kMaxUnacknowledged - unacknowledged;
  _loansLeft.store(loans, std::memory_order_relaxed);
  if (!_deferred || loans <= 0) return;
  _deferred = false;
  const std::lock_guard lock(_mutex);
  if (_waiting > 0) wakeMainThread();
}

void LibraryGate::wakeMainThread() {
  if (_wakePending || _wakeFd < 0) return;
  const std::uint64_t one = 1;
  _wakePending = write(_wakeFd, &one, sizeof one) == sizeof one;
}

void LibraryGate::beginDeviceWait() {
  const std::lock_guard lock(_mutex);
  _deviceWait = true;
  if (_waiting > 0) _lent.notify_all();
}

void LibraryGate::endDeviceWait() {
  std::unique_lock lock(_mutex);
  _deviceWait = false;
  _returned.wait(lock, [this] { return !_borrowed; });
  if (_waiting > 0) wakeMainThread();
}

void LibraryGate::lendOnce() {
  std::unique_lock lock(_mutex);
  std::uint64_t wakeUps = 0;
  [[maybe_unused]] const ssize_t size = read(_wakeFd, &wakeUps, sizeof wakeUps);
  _wakePending = false;
  if (_waiting == 0) return;
  if (_waitingBetween == 0 && _loansLeft.load(std::memory_order_relaxed) <= 0) {
    _deferred = true;
    return;
  }

  _offered = true;
  _lent.notify_all();
  // A borrower whose limit runs out now leaves nobody waiting: the offer is withdrawn.
  _returned.wait(lock, [this] { return !_borrowed && (!_offered || _waiting == 0); });
  _offered = false;
  if (_waiting > 0) wakeMainThread();
}

bool LibraryGate::canBorrow(Place place) const {
  if (_borrowed) return false;
  if (_offered) return place == Place::kBetweenRequests || _waitingBetween == 0;
  return place == Place::kAnywhere && _deviceWait && _loansLeft.load(std::memory_order_relaxed) > 0;
}

bool LibraryGate::borrow(Place place, std::chrono::milliseconds limit) {
  std::unique_lock lock(_mutex);
  ++_waiting;
  if (place == Place::kBetweenRequests) ++_waitingBetween;
  if (!_deviceWait) wakeMainThread();
  const auto granted = [this, place] { return canBorrow(place); };
  bool held = true;
  if (limit == std::chrono::milliseconds::zero()) {
    _lent.wait(lock, granted);
  } else {
    held = _lent.wait_for(lock, limit, granted);
  }
  --_waiting;
  if (place == Place::kBetweenRequests) --_waitingBetween;
  if (!held) {
    _lent.notify_all();
    _returned.notify_one();
    return false;
  }
  _borrowed = true;
  _offered = false;
  _loansLeft.fetch_sub(1, std::memory_order_relaxed);
  return true;
}

void LibraryGate::giveBack() {
  const std::lock_guard lock(_mutex);
  _borrowed = false;
  _returned.notify_one();
  // While the main thread still waits for the device, the next borrower may go on.
  if (_deviceWait && _waiting > 0) _lent.notify_all();
}

}  // namespace norva
