#include "TrapAlarm.h"

#include <signal.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <numeric>
#include <string_view>
#include <thread>
#include <utility>

#include "DataManage.h"
#include "ObjValue.h"
#include "Output.h"
#include "SnmpDataBase.h"
#include "Trace.h"

namespace norva {

namespace {

constexpr std::size_t kReceiveLimit = BacklogFile::kHandSize;

/// Name of a remote-unit change. Deliberate: as many characters of the text are skipped as the
/// three bytes add up to; beyond the text the name is empty.
std::string ruName(const std::uint8_t* ruBytes) {
  constexpr std::string_view kText = "RU ";
  const unsigned skipped = std::accumulate(ruBytes, ruBytes + TrapMessage::kRuByteCount, 0U);
  return skipped < kText.size() ? std::string(kText.substr(skipped)) : std::string();
}

}  // namespace

TrapAlarm::TrapAlarm(std::string label, NotificationQueue& queue)
    : Thread(kRunning, 0, 0), _label(std::move(label)), _queue(queue) {}

void TrapAlarm::init(const SnmpDataBase& catalogue) {
  _catalogue = &catalogue;
  ObjValue version;
  if (DataManage::getInstance()->getObjValue(kObjNotificationVersion, version) == -1) {
    Output::puts("setSnmpValue::select 0x0611 error!");
  }
  _trapType = version.value()[0] != 0 ? kSnmpV3 : kSnmpV2c;
  Output::print("Init _trapType is %d \n", _trapType);

  _queueId = msgget(_queueKey, IPC_CREAT | 0666);
  if (_queueId == -1) Output::puts("Trap::Trap  create msg error");
}

void TrapAlarm::useFile(BacklogFile::Opened opened) {
  _file = std::move(opened.file);
  _queue.useFile(_file.get(), opened.lastSequence);
  for (const BacklogFile::Kept& kept : opened.kept) {
    std::string name, value;
    if (_catalogue->getObjName(kept.message.objId(), name) == 0 && kept.message.hasKnownType()) {
      nameEvent(kept.message, name, value);
      _queue.restore({kept.message, name, value}, kept);
    } else {
      _queue.forget(kept);
    }
  }
}

void TrapAlarm::takeNoMore(std::chrono::milliseconds limit) {
  constexpr std::chrono::milliseconds kLook{1};
  const auto end = std::chrono::steady_clock::now() + limit;
  _isEnding = true;
  DataManage::getInstance()->endAlarms();
  // Again and again: the first one may come just before the wait that it is to end.
  signal(SIGUSR1, [](int) {});
  while (!_takesNoMore && std::chrono::steady_clock::now() < end) {
    if (_self != pthread_t{}) pthread_kill(_self, SIGUSR1);
    std::this_thread::sleep_for(kLook);
  }
}

void TrapAlarm::run() {
  _self = pthread_self();
  for (;;) {
    TrapMessage event;
    while (receive(event) == 0) Output::puts("not receive !!");
    // Deliberate: an event of an object without a scalar mapping is dropped, whatever its type.
    std::string name;
    if (_catalogue->getObjName(event.objId(), name) != 0) continue;
    dispatch(event, std::move(name), {});
  }
}

int TrapAlarm::receive(TrapMessage& event) {
  alignas(long) std::uint8_t buffer[ComPortAdapter::kTypeSize + kReceiveLimit] = {};
  const int length =
      DataManage::getInstance()->readAlarm(buffer, kReceiveLimit, _file ? _file->hand() : nullptr);
  const int error = errno;
  if (length == -1 && _isEnding) {
    _takesNoMore = true;
    for (;;) pause();
  }
  if (length > 0) {
    Trace::print("receivebuf len is %d \n", length);
  } else {
    Output::print("receivebuf len is %d \n", length);
  }
  event = TrapMessage();
  if (length != -1) {
    event = TrapMessage(buffer, static_cast<std::size_t>(length));
  } else if (error == E2BIG && DataManage::getInstance()->dropAlarm()) {
    Output::puts("alarm message too large to receive, taken off the queue");
  } else {
    std::this_thread::sleep_for(kPauseAfterFailure);
  }
  return length;
}

void TrapAlarm::nameEvent(const TrapMessage& event, std::string& name, std::string& value) const {
  switch (event.msgType()) {
    case kMsgAlarm:
      value = event.cleared() ? "Clear Alarm" : "New Alarm";
      _catalogue->getObjName(event.objId(), name);
      Trace::print("val is %s, name is %s \n", value.c_str(), name.c_str());
      break;
    case kMsgRuChange:
      value = event.cleared() ? "Remove RU" : "Add RU";
      name = ruName(event.ruBytes());
      break;
    case kMsgGeneralEvent:
      value = event.cleared() ? "Lose GeneralTrap" : "Report GeneralTrap";
      name = "GeneralTrap";
      break;
    default:
      break;
  }
}

void TrapAlarm::dispatch(const TrapMessage& event, std::string name, std::string value) {
  nameEvent(event, name, value);
  _lastMessage = event;
  sendTrap(event, name, value, Origin::kUnit);
}

bool TrapAlarm::sendTrap(const TrapMessage& trapMessage, const std::string& name,
                         const std::string& value, Origin origin) {
  if (!trapMessage.hasKnownType()) {
    Output::print("TrapAlarm::sendTrap no notification for msgType %d\n", trapMessage.msgType());
    return false;
  }
  Trace::print("TrapAlarm::sendTrap trapmsg.deviceId=%d\nstring is %s \nstring is %s \n",
               trapMessage.deviceId(), name.c_str(), value.c_str());
  if (origin == Origin::kAgent) return _queue.pushHeartbeat({trapMessage, name, value});
  _queue.push({trapMessage, name, value});
  return true;
}

}  // namespace norva
