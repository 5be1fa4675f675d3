#include "NotificationQueue.h"

#include <algorithm>
#include <utility>

#include "Output.h"

namespace norva {

NotificationQueue& NotificationQueue::getInstance() {
  static auto* const instance = new NotificationQueue;
  return *instance;
}

void NotificationQueue::setCapacity(std::size_t capacity) {
  const std::lock_guard lock(_mutex);
  _capacity = capacity;
}

void NotificationQueue::push(Notification notification) {
  std::unique_lock lock(_mutex);
  while (!hasRoom() && !isOutage()) {
    // An outage that nothing tells of begins when the master has had its time.
    waitForChange(
        lock, keeps() ? (_listens ? _progress : Clock::now()) + kStall : Clock::time_point::max());
  }
  append(lock, {{std::move(notification)}});
}

bool NotificationQueue::pushHeartbeat(Notification notification) {
  std::unique_lock lock(_mutex);
  while (!hasRoom() && (_connected || !keeps())) waitForChange(lock, Clock::time_point::max());
  if (keeps() && !_connected) return false;
  _heartbeat = Fate::kWaiting;
  append(lock, {{std::move(notification)}, true});
  _changed.wait(lock, [this] { return _heartbeat != Fate::kWaiting; });
  return _heartbeat == Fate::kTaken;
}

bool NotificationQueue::isOutage() const {
  if (!keeps()) return false;
  return !_connected || (_listens && Clock::now() - _progress >= kStall);
}

void NotificationQueue::waitForChange(std::unique_lock<std::mutex>& lock,
                                      Clock::time_point deadline) {
  // Counted down also when the thread is stopped while it waits.
  struct Waiting {
    explicit Waiting(int& producers) : count(producers) { ++count; }
    ~Waiting() { --count; }
    int& count;
  } const waiting(_producersWaiting);
  if (deadline == Clock::time_point::max()) {
    _changed.wait(lock);
  } else {
    _changed.wait_until(lock, deadline);
  }
}

void NotificationQueue::append(std::unique_lock<std::mutex>& lock, Entry entry) {
  if (held() == 0) _progress = Clock::now();
  _waiting.push_back(std::move(entry));
  while (keeps() && _waiting.size() > _capacity) dropOldest();
  const bool before = _sendable;
  update();
  if (before || !_sendable || !_tell) return;
  lock.unlock();
  _tell();
  lock.lock();
}

void NotificationQueue::dropOldest() {
  Entry& oldest = _waiting.front();
  if (oldest.isHeartbeat) {
    settle(oldest, Fate::kGivenUp);
  } else {
    if (oldest.sequence == 0) ++_sequence;
    ++_dropped;
  }
  _waiting.pop_front();
}

void NotificationQueue::settle(const Entry& entry, Fate fate) {
  if (!entry.isHeartbeat || _heartbeat != Fate::kWaiting) return;
  _heartbeat = fate;
  _changed.notify_all();
}

void NotificationQueue::tellRoom() {
  if (_producersWaiting == 0) return;
  const bool isRoomy = keeps() ? held() <= _capacity - _capacity / 4 : _waiting.empty();
  if (isRoomy) _changed.notify_all();
}

void NotificationQueue::update() {
  _sendable = !_waiting.empty() && _owed.size() < kMaxOwed && (_connected || !keeps());
  _holdsAny = held() > 0;
}

const NotificationQueue::Numbered* NotificationQueue::take() {
  std::size_t dropped = 0;
  {
    const std::lock_guard lock(_mutex);
    if (!_sendable) return nullptr;
    dropped = std::exchange(_dropped, 0);
    _owed.push_back(std::move(_waiting.front()));
    _waiting.pop_front();
    if (_owed.back().sequence == 0) _owed.back().sequence = ++_sequence;
    settle(_owed.back(), Fate::kTaken);
    tellRoom();
    update();
  }
  if (dropped > 0) {
    Output::print("%zu notifications were dropped, the oldest, while the master took none\n",
                  dropped);
  }
  // Only the library's holder changes what is owed.
  return &_owed.back();
}

void NotificationQueue::sent(std::uint32_t id) {
  std::uint32_t unsent = 0;
  {
    const std::lock_guard lock(_mutex);
    if (_owed.empty()) return;
    if (_connected && id != 0) {
      _owed.back().packet = id;
    } else {
      if (_connected) unsent = _owed.back().sequence;
      _owed.pop_back();
    }
    update();
  }
  if (unsent != 0) Output::print("notification %u could not be sent\n", unsent);
}

void NotificationQueue::acknowledged(std::uint32_t id, unsigned error) {
  std::uint32_t sequence = 0;
  {
    const std::lock_guard lock(_mutex);
    const auto entry =
        std::find_if(_owed.begin(), _owed.end(), [id](const Entry& e) { return e.packet == id; });
    if (entry == _owed.end()) return;
    sequence = entry->sequence;
    _owed.erase(entry);
    _progress = Clock::now();
    tellRoom();
    update();
  }
  if (error != 0) Output::print("the master refused notification %u: error %u\n", sequence, error);
}

void NotificationQueue::sessionStarted() {
  const std::lock_guard lock(_mutex);
  _connected = true;
  _progress = Clock::now();
  update();
}

void NotificationQueue::listensToMaster(bool listens) {
  if (listens && _holdsAny) {
    const std::lock_guard lock(_mutex);
    _progress = Clock::now();
  }
  _listens = listens;
}

void NotificationQueue::sessionEnded() {
  const std::lock_guard lock(_mutex);
  _connected = false;
  if (keeps()) {
    std::move(_owed.rbegin(), _owed.rend(), std::front_inserter(_waiting));
    for (const Entry& entry : _waiting) settle(entry, Fate::kGivenUp);
    std::erase_if(_waiting, [](const Entry& entry) { return entry.isHeartbeat; });
    while (_waiting.size() > _capacity) dropOldest();
  }
  _owed.clear();
  update();
  _changed.notify_all();
}

}  // namespace norva
