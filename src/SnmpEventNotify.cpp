#include "SnmpEventNotify.h"

#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <thread>
#include <utility>

#include "DataManage.h"
#include "Output.h"
#include "Trace.h"
#include "TrapAlarm.h"

namespace norva {

namespace {

constexpr std::uint16_t kObjDeviceId = 0x0102;
constexpr std::uint16_t kObjText5 = 0x0004;
constexpr std::uint16_t kObjText6 = 0x0005;
constexpr std::uint16_t kObjText4 = 0x0600;

/// Reads an object into `record`, which a failed read leaves as it was; false then. Deliberate: the
/// failure is printed for -1, which getObjValue never returns.
bool readObject(std::uint16_t oid, ObjValue& record, const char* error) {
  const int result = DataManage::getInstance()->getObjValue(oid, record);
  if (result == -1) Output::puts(error);
  return result == 0;
}

ObjValue readObject(std::uint16_t oid, const char* error) {
  ObjValue record;
  readObject(oid, record, error);
  return record;
}

/// The value bytes that the object's length code counts.
std::string_view valueBytes(const ObjValue& record) {
  const int size = std::clamp<int>(record.objLen() - kObjLenOverhead, 0, ObjValue::kValueSize);
  return {reinterpret_cast<const char*>(record.value()), static_cast<std::size_t>(size)};
}

/// Device id of a heartbeat from the first byte of the unit's device id object.
std::uint8_t heartBeatDeviceId(std::uint8_t value) {
  if (value == 0) return 0;
  return static_cast<std::uint8_t>((value & 0x3F) - 1 + ((value >> 3) & 0x18));
}

}  // namespace

SnmpEventNotify::SnmpEventNotify(std::string name, TrapAlarm* alarmTrap)
    : Thread(kRunning, 0, 0), _name(std::move(name)), _alarmTrap(alarmTrap) {
  DataManage::getInstance()->getObjValue(kObjHeartBeatInterval, _intervalObject);
  _heartBeatInterval = _intervalObject.value()[0];
  Output::print("Init _heartBeatInterval is %d \n", _heartBeatInterval);
  initHeartBeatMsg(_heartMsg);
}

void SnmpEventNotify::initHeartBeatMsg(TrapMessage& heartMsg) {
  // Deliberate: the error texts of the device id name other objects than the one that is read.
  const ObjValue deviceId = readObject(kObjDeviceId, "setSnmpValue::select 0x8560 error!");
  heartMsg.setDeviceId(heartBeatDeviceId(deviceId.value()[0]));
  const ObjValue text5 = readObject(kObjText5, "setSnmpValue::select 0x0004 error!");
  heartMsg.setText(TrapMessage::kText5, valueBytes(text5));
  const ObjValue text6 = readObject(kObjText6, "setSnmpValue::select 0x0005 error!");
  heartMsg.setText(TrapMessage::kText6, valueBytes(text6));
  const ObjValue deviceRaw = readObject(kObjDeviceId, "setSnmpValue::select 0x0101 error!");
  heartMsg.setDeviceRaw(deviceRaw.value()[0]);
  const ObjValue text4 = readObject(kObjText4, "setSnmpValue::select 0x0600 error!");
  Output::print("SnmpEventNotify::initHeartBeatMsg heartMsg.deviceId=%d\n", heartMsg.deviceId());
  heartMsg.setText(TrapMessage::kText4, valueBytes(text4));
}

bool SnmpEventNotify::readHeartBeatInterval() {
  const bool isRead =
      readObject(kObjHeartBeatInterval, _intervalObject, "setSnmpValue::select 0x0FFA error!");
  _heartBeatInterval = _intervalObject.value()[0];
  Trace::print("_heartBeatInterval is changed to %d \n", _heartBeatInterval);
  return isRead;
}

void SnmpEventNotify::readHeartBeatSwFlag() {
  readObject(kObjHeartBeatSwitch, _switchObject, "setSnmpValue::select 0x0FFB error!");
  _heartBeatSwFlag = _switchObject.value()[0];
  Trace::print("_heartBeatSwFlag is changed to %d \n", _heartBeatSwFlag);
}

void SnmpEventNotify::run() {
  constexpr unsigned kSecondsPerMinute = 60;
  constexpr unsigned kIdlePause = 2;
  std::uint8_t heartBeats = 0;
  for (;;) {
    Trace::puts("SnmpEventNotify::run send heartbeat ");
    if (!readHeartBeatInterval()) std::this_thread::sleep_for(kPauseAfterFailure);
    sleep(_heartBeatInterval * kSecondsPerMinute);
    if (status() == kIdle) {
      sleep(kIdlePause);
      continue;
    }
    readHeartBeatSwFlag();
    if (_heartBeatSwFlag != 0) {
      _heartMsg.setMsgType(kMsgHeartbeat);
      const char* value = (heartBeats & 1) != 0 ? "1" : "0";
      Trace::puts("_alarmTrap->sendTrap ");
      // One that is given up, as there is no master, does not use up its turn.
      if (_alarmTrap->sendTrap(_heartMsg, "heartbeat", value, TrapAlarm::Origin::kAgent)) {
        ++heartBeats;
      }
    }
    Trace::puts("send heartTrap end ");
  }
}

}  // namespace norva
