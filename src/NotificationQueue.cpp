#include "NotificationQueue.h"

#include <algorithm>
#include <limits>

#include "AgentStatistics.h"
#include "Output.h"

namespace norva {

namespace {

/// A master that says nothing for longer is not heard for that time, but stopped or away.
constexpr std::chrono::seconds kLongestPause{5};

}  // namespace

NotificationQueue& NotificationQueue::getInstance() {
  static auto* const instance = new NotificationQueue;
  return *instance;
}

void NotificationQueue::setCapacity(std::size_t capacity) {
  const std::lock_guard lock(_mutex);
  _capacity = capacity;
}

std::size_t NotificationQueue::size() {
  const std::lock_guard lock(_mutex);
  return held();
}

void NotificationQueue::useFile(BacklogFile* file, std::uint32_t lastSequence) {
  const std::lock_guard lock(_mutex);
  _file = file;
  _sequence = lastSequence;
}

void NotificationQueue::restore(Notification notification, const BacklogFile::Kept& kept) {
  std::unique_lock lock(_mutex);
  Entry entry{{std::move(notification), kept.sequence}};
  entry.slot = kept.slot;
  // What was owed, and in hand, came on top of the capacity.
  append(lock, std::move(entry), std::numeric_limits<std::size_t>::max());
}

void NotificationQueue::forget(const BacklogFile::Kept& kept) {
  const std::lock_guard lock(_mutex);
  if (_file != nullptr) _file->drop(kept.slot);
}

void NotificationQueue::push(Notification notification) {
  std::unique_lock lock(_mutex);
  // An outage that nothing tells of begins when the master has had its time.
  while (!hasRoom() && !isOutage()) waitForChange(lock, _progress + _times.stall);
  // Without a capacity it is the one whose turn is next.
  append(lock, {{std::move(notification)}}, std::max<std::size_t>(_capacity, 1));
}

bool NotificationQueue::pushHeartbeat(Notification notification) {
  std::unique_lock lock(_mutex);
  while (!hasRoom() && canLeave() && !_isEnding) waitForChange(lock, Clock::time_point::max());
  if (!canLeave() || _isEnding) return false;
  _heartbeat = Fate::kWaiting;
  append(lock, {{std::move(notification)}, true}, std::max<std::size_t>(_capacity, 1));
  _changed.wait(lock, [this] { return _heartbeat != Fate::kWaiting; });
  return _heartbeat == Fate::kTaken;
}

void NotificationQueue::drain(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  std::unique_lock lock(_mutex);
  _isEnding = true;
  _changed.notify_all();
  while (canLeave() && (held() > 0 || _producersWaiting > 0) && Clock::now() < deadline) {
    _left.wait_until(lock, deadline);
  }
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

void NotificationQueue::append(std::unique_lock<std::mutex>& lock, Entry entry, std::size_t most) {
  AgentStatistics::get().notificationsTaken.add();
  if (held() == 0) madeProgress();
  // First, so that a full file has a slot for the new one.
  while (_waiting.size() >= most) dropOldest();
  const bool isKept = !entry.isHeartbeat && entry.slot == BacklogFile::kNoSlot;
  if (_file != nullptr && isKept) {
    entry.slot = _file->keep(entry.notification.message);
    if (entry.sequence != 0) _file->number(entry.slot, entry.sequence);
  }
  _waiting.push_back(std::move(entry));
  const bool before = _sendable;
  update();
  if (before || !_sendable || !_tell) return;
  lock.unlock();
  _tell();
  lock.lock();
}

void NotificationQueue::number(Entry& entry) {
  if (entry.sequence != 0) return;
  entry.sequence = ++_sequence;
  if (_file != nullptr) _file->number(entry.slot, entry.sequence);
}

void NotificationQueue::dropOldest() {
  Entry& oldest = _waiting.front();
  if (oldest.isHeartbeat) {
    settle(oldest, Fate::kGivenUp);
  } else {
    number(oldest);
    ++_dropped;
    AgentStatistics::get().notificationsDropped.add();
    if (_file != nullptr) _file->drop(oldest.slot);
  }
  _waiting.pop_front();
}

void NotificationQueue::settle(const Entry& entry, Fate fate) {
  if (!entry.isHeartbeat || _heartbeat != Fate::kWaiting) return;
  _heartbeat = fate;
  _changed.notify_all();
}

void NotificationQueue::tellRoom() {
  if (held() == 0) _left.notify_all();
  if (_producersWaiting == 0) return;
  const bool isRoomy = keeps() ? held() <= _capacity - _capacity / 4 : _waiting.empty();
  if (isRoomy) _changed.notify_all();
}

std::size_t NotificationQueue::Entry::textSize() const {
  const auto& [message, name, value] = notification;
  return name.size() + value.size() + message.text(TrapMessage::kText4).size() +
         message.text(TrapMessage::kText5).size() + message.text(TrapMessage::kText6).size();
}

bool NotificationQueue::owesAll() const {
  if (_owed.size() >= kMaxOwed) return true;
  return !_owed.empty() && !_waiting.empty() &&
         _owedBytes + _waiting.front().textSize() > kMaxOwedBytes;
}

void NotificationQueue::madeProgress() {
  _progress = _heard = Clock::now();
  _heardFor = {};
}

void NotificationQueue::update() {
  const bool owesAll = this->owesAll();
  if (owesAll && !_owesAll) {
    _heard = Clock::now();
    _heardFor = {};
  }
  _owesAll = owesAll;
  _sendable = !_waiting.empty() && !owesAll && canLeave();
}

const NotificationQueue::Numbered* NotificationQueue::take() {
  std::size_t dropped = 0;
  {
    const std::lock_guard lock(_mutex);
    if (!_sendable) return nullptr;
    dropped = std::exchange(_dropped, 0);
    _owed.push_back(std::move(_waiting.front()));
    _waiting.pop_front();
    if (_owed.back().sequence != 0) AgentStatistics::get().notificationsRepeated.add();
    number(_owed.back());
    _owedBytes += _owed.back().textSize();
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

void NotificationQueue::remove(const std::deque<Entry>::const_iterator& entry) {
  _owedBytes -= entry->textSize();
  if (_file != nullptr) _file->drop(entry->slot);
  _owed.erase(entry);
  tellRoom();
  update();
}

void NotificationQueue::sent(std::uint32_t id) {
  std::uint32_t unsent = 0;
  {
    const std::lock_guard lock(_mutex);
    if (_owed.empty()) return;
    if (_connected && id != 0) {
      _owed.back().packet = id;
      AgentStatistics::get().notificationsSent.add();
      return;
    }
    AgentStatistics::get().notificationsDropped.add();
    if (_connected) {
      unsent = _owed.back().sequence;
    } else {
      madeProgress();  // by the library, which drops it
    }
    remove(_owed.end() - 1);
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
    auto& statistics = AgentStatistics::get();
    (error == 0 ? statistics.notificationsAcknowledged : statistics.notificationsDropped).add();
    madeProgress();
    remove(entry);
  }
  if (error != 0) Output::print("the master refused notification %u: error %u\n", sequence, error);
}

void NotificationQueue::sessionStarted() {
  const std::lock_guard lock(_mutex);
  _connected = true;
  madeProgress();
  update();
}

void NotificationQueue::deviceWait(bool begins) {
  if (!_owesAll) return;
  const std::lock_guard lock(_mutex);
  // What passes in between was not heard.
  if (begins) {
    _deaf = Clock::now();
  } else {
    _heard += Clock::now() - std::max(_deaf, _heard);
  }
}

bool NotificationQueue::isForsakenOnHearing() {
  if (!_owesAll) return false;
  const std::lock_guard lock(_mutex);
  if (!_connected) return false;
  const auto now = Clock::now();
  _heardFor += std::clamp<Clock::duration>(now - _heard, {}, kLongestPause);
  _heard = now;
  if (_heardFor < _times.forsaken) return false;
  _heardFor = {};
  return true;
}

void NotificationQueue::sessionEnded() {
  const std::lock_guard lock(_mutex);
  _connected = false;
  if (keeps()) {
    std::move(_owed.rbegin(), _owed.rend(), std::front_inserter(_waiting));
    for (const Entry& entry : _waiting) settle(entry, Fate::kGivenUp);
    std::erase_if(_waiting, [](const Entry& entry) { return entry.isHeartbeat; });
    // What is too much goes with the next alarm, if one comes before there is a session again.
  }
  _owed.clear();
  _owedBytes = 0;
  update();
  _changed.notify_all();
  _left.notify_all();
}

}  // namespace norva
