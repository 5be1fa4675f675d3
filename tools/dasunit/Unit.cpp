#include "Unit.h"

#include <pthread.h>
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <mutex>
#include <utility>

#include "ObjectProtocol.h"

namespace norva::dasunit {

namespace {

constexpr std::chrono::microseconds kPostRetry{100};
constexpr std::chrono::milliseconds kWakeUpRetry{1};
/// Ends the wait for a request.
constexpr int kWakeUpSignal = SIGUSR1;

/// Waits, at most until `stopping` is requested.
void pause(std::chrono::milliseconds duration, const std::stop_token& stopping) {
  std::mutex mutex;
  std::condition_variable_any never;
  std::unique_lock lock(mutex);
  never.wait_for(lock, stopping, duration, [] { return false; });
}

}  // namespace

Unit::Unit(const std::vector<DeviceObject>& objects, const std::string& recordPath)
    : recorder_(recordPath) {
  objects_.add(objects);
}

Unit::~Unit() {
  stop();
}

void Unit::start() {
  struct sigaction wakeUp {};
  wakeUp.sa_handler = [](int) {};
  sigaction(kWakeUpSignal, &wakeUp, nullptr);
  server_ = std::thread([this] { serve(); });
}

void Unit::stop() {
  if (!server_.joinable()) return;
  stopping_.request_stop();
  // Repeated, as a signal that comes just before the server waits for a request does not wake it.
  while (!ended_) {
    pthread_kill(server_.native_handle(), kWakeUpSignal);
    std::this_thread::sleep_for(kWakeUpRetry);
  }
  server_.join();
}

void Unit::serve() {
  try {
    while (!stopping_.stop_requested()) {
      if (const auto request = requests_.receive()) handle(*request);
    }
  } catch (const InputError& error) {
    std::fprintf(stderr, "dasunit: %s\n", error.what());
    failed_ = true;
    kill(getpid(), SIGTERM);
  }
  ended_ = true;
}

void Unit::handle(std::span<const std::uint8_t> request) {
  recorder_.record(Direction::kRequest, Recorder::now(), request);
  const std::uint8_t command = request.empty() ? std::uint8_t{0} : request[kFrameCommand];
  statistics_.add(Count::kRequests);
  if (command == kCommandGetRequest) statistics_.add(Count::kGets);
  if (command == kCommandSetRequest) statistics_.add(Count::kSets);

  Bytes reply = objects_.answer(request);
  statistics_.add(reply[kFrameCommand] == kCommandRefused ? Count::kRefused : Count::kAccepted);

  const std::optional<Fault> fault = faults_.take(request);
  if (!fault) {
    sendReply(reply);
    return;
  }
  statistics_.add(Count::kFaults);
  if (fault->delay().count() > 0) pause(fault->delay(), stopping_.get_token());
  for (const Bytes& frame : applyFault(*fault, std::move(reply))) sendReply(frame);
}

void Unit::sendReply(std::span<const std::uint8_t> frame) {
  // Recorded and counted first: whoever has the reply finds it in the record and the counts.
  recorder_.record(Direction::kReply, Recorder::now(), frame);
  statistics_.add(Count::kReplies);
  if (!replies_.send(frame)) {
    statistics_.add(Count::kReplies, -1);
    statistics_.add(Count::kDropped);
  }
}

void Unit::postAlarm(std::span<const std::uint8_t> message) {
  const auto deadline = std::chrono::steady_clock::now() + kPostPatience;
  timespec time = Recorder::now();
  while (!alarms_.send(message)) {
    if (stopping_.stop_requested()) throw InputError("the unit ends");
    if (std::chrono::steady_clock::now() > deadline) throw InputError("the alarm queue is full");
    std::this_thread::sleep_for(kPostRetry);
    time = Recorder::now();
  }
  statistics_.add(Count::kAlarms);
  recorder_.record(Direction::kAlarm, time, message);
}

void Unit::removeQueue(std::string_view name) {
  if (name == "request") {
    requests_.remove();
  } else if (name == "reply") {
    replies_.remove();
  } else if (name == "alarm") {
    alarms_.remove();
  } else {
    throw InputError("unknown queue '" + std::string(name) + "': request, reply or alarm");
  }
}

}  // namespace norva::dasunit
