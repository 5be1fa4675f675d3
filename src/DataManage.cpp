#include "DataManage.h"

#include <cerrno>
#include <cstring>

#include "AgentStatistics.h"
#include "ObjInfo.h"
#include "ObjectProtocol.h"
#include "Output.h"
#include "SnmpDataBase.h"
#include "Trace.h"

namespace norva {

namespace {

constexpr std::size_t kGetReplyLimit = 1024;
static_assert(kGetReplyLimit >= kMinGetReplyBuffer);
constexpr std::size_t kSetReplyLimit = ComPortAdapter::kMaxReceive;

}  // namespace

DataManage* DataManage::getInstance() {
  static DataManage* instance = nullptr;
  if (instance == nullptr) instance = new DataManage;
  return instance;
}

DataManage::DataManage() : _pConvertStrategy(std::make_unique<SnmpObjConvertStrategy>()) {
  const std::lock_guard lock(_mutex);
  _pComPortAdapter = std::make_unique<ComPortAdapter>(_replyTimer);
  _pComPortAdapter->open();
  _pComPortAdapter->dropRequests();
  Output::puts("_pComPortAdapter->open() end....");
}

DataManage::~DataManage() {
  const std::lock_guard lock(_mutex);
  _pComPortAdapter.reset();
}

std::unique_lock<std::mutex> DataManage::lockUnit(std::uint16_t oid) {
  std::unique_lock lock(_mutex, std::try_to_lock);
  if (lock.owns_lock()) return lock;
  const unsigned before = timeouts();
  lock.lock();
  // The other thread has found the unit silent: that time was waited here too.
  if (isSilentSince(before, oid)) lock.unlock();
  return lock;
}

bool DataManage::isSilentSince(unsigned timeouts, std::uint16_t oid) const {
  if (this->timeouts() == timeouts) return false;
  Output::print("object 0x%04x: not asked for, the unit is silent\n", oid);
  return true;
}

int DataManage::getObjValue(std::uint16_t oid, ObjValue& record) {
  int repetitions = _isStarting ? 3 : 0;
  int error = tryGet(oid, record);
  for (; (error == EIDRM || error == EINVAL) && repetitions > 0; --repetitions) {
    error = tryGet(oid, record);
  }
  return error == 0 ? 0 : kFailed;
}

int DataManage::tryGet(std::uint16_t oid, ObjValue& record) {
  const auto lock = lockUnit(oid);
  if (!lock.owns_lock()) return kFailed;
  UnitExchange exchange(AgentStatistics::get().unitReads);
  const GetRequest request = encodeGetRequest(oid);
  _pComPortAdapter->flush();
  if (_pComPortAdapter->write(request.data(), request.size()) == -1) {
    Output::puts("DataManage::getObjValue  writeData error!");
    return kFailed;
  }
  alignas(long) std::uint8_t reply[ComPortAdapter::kTypeSize + kGetReplyLimit];
  if (const int error = awaitReply(kCommandGetReply, oid, reply, kGetReplyLimit); error != 0) {
    Output::puts("DataManage::getObjValue  readData error!");
    afterFailedRead(oid, error, exchange);
    return error;
  }
  exchange.replied();
  const GetReplyHeader header = decodeGetReplyHeader(reply);
  if (header.command != kCommandGetReply) {
    Output::print("ERR: DatabaseFacade::select:  error!  cmd=%x  oid=0x%04x\n", header.command,
                  header.oid);
    return kFailed;
  }
  record.setObjLen(header.objLen);
  record.setAttr(header.attr);
  if (!decodeGetReplyValue(reply, record)) {
    Output::puts("ERR: DatabaseFacade::select: type unsupported!");
    return kFailed;
  }
  exchange.succeeded();
  return 0;
}

int DataManage::setObjValue(std::uint16_t oid, const ObjValue& record) {
  return write(oid, record) == WriteResult::kDone ? 0 : kFailed;
}

WriteResult DataManage::write(std::uint16_t oid, const ObjValue& record) {
  const auto lock = lockUnit(oid);
  if (oid == kObjHeartBeatInterval) heartBeatIntervalChanged = true;
  if (oid == kObjHeartBeatSwitch) heartBeatSwFlagChanged = true;
  if (!lock.owns_lock()) return WriteResult::kNotAsked;

  if (Trace::enabled()) {
    TraceLine line;
    line.text("cmd is ").decimal(kCommandSetRequest);
    line.text(", objLen is ").decimal(record.objLen()).text(" \n");
    if (!isSetLength(record.objLen())) line.text("\nDataManage::setObjValue error obj type!");
    line.print();
  }
  UnitExchange exchange(AgentStatistics::get().unitWrites);
  SetRequest request;
  const std::size_t size = encodeSetRequest(oid, record, request);
  _pComPortAdapter->flush();
  _pComPortAdapter->write(request.data(), size);
  alignas(long) std::uint8_t reply[ComPortAdapter::kTypeSize + kSetReplyLimit];
  if (const int error = awaitReply(kCommandSetReply, oid, reply, kSetReplyLimit); error != 0) {
    afterFailedRead(oid, error, exchange);
    return WriteResult::kUnanswered;
  }
  exchange.replied();
  if (reply[kFrameCommand] != kCommandSetReply) return WriteResult::kRefused;
  exchange.succeeded();
  return WriteResult::kDone;
}

int DataManage::awaitReply(Command awaited, std::uint16_t oid, std::uint8_t* reply,
                           std::size_t limit) {
  const ReplyTimer::Wait wait(_replyTimer);
  do {
    std::memset(reply, 0, ComPortAdapter::kTypeSize + kMinGetReplyBuffer);
    if (_pComPortAdapter->read(reply, limit) == -1) return errno;
  } while (isLate(reply, awaited, oid));
  return 0;
}

bool DataManage::isLate(const std::uint8_t* reply, Command awaited, std::uint16_t oid) const {
  if (!_matchesReplies) return false;
  const GetReplyHeader header = decodeGetReplyHeader(reply);
  if (header.command == kCommandGetReply) return awaited != kCommandGetReply || header.oid != oid;
  return header.command == kCommandSetReply && awaited != kCommandSetReply;
}

void DataManage::afterFailedRead(std::uint16_t oid, int error, const UnitExchange& exchange) {
  if (error == ETIMEDOUT) {
    AgentStatistics::get().unitTimeouts.add();
    Output::print("object 0x%04x: no reply of the unit in time\n", oid);
  } else if (error == E2BIG) {
    exchange.replied();
    if (_pComPortAdapter->dropReply()) {
      Output::puts("reply too large to receive, taken off the queue");
    }
  }
}

void DataManage::limitWaits(std::chrono::seconds limit) {
  _isStarting = false;
  _replyTimer.limit(limit);
}

int DataManage::readAlarm(std::uint8_t* buffer, std::size_t length, std::uint8_t* hand) {
  return _pComPortAdapter->readAlarm(buffer, length, hand != nullptr ? hand : buffer);
}

void DataManage::endAlarms() {
  _pComPortAdapter->endAlarms();
}

bool DataManage::dropAlarm() {
  return _pComPortAdapter->dropAlarm();
}

int DataManage::getSnmpValue(ObjValue& record, const SnmpDataBase& catalogue,
                             Presentation* presentation) {
  // Deliberate: getObjValue fails with 255, so a failed read goes on with the record as it is.
  if (getObjValue(record.oid(), record) == -1) {
    Output::print("select 0x%04x error!\n", record.oid());
    return -1;
  }
  ObjAttributes mapping;
  if (catalogue.findAttributes(record.oid(), mapping) != 0) return -1;

  Presentation made;
  if (toManager(*_pConvertStrategy, mapping.covMethod, record, made) == -1) return -1;
  if (Trace::enabled()) {
    TraceLine line;
    line.text("norvasnmp:getSnmpValue oid=0x").hex(record.oid());
    line.text(",covMethod=").decimal(mapping.covMethod).text("\n").print();
  }
  if (presentation != nullptr) *presentation = made;
  return 0;
}

int DataManage::setSnmpValue(ObjValue& record, const SnmpDataBase& catalogue, bool isAddress) {
  ObjValue current;  // zeroed: an object that cannot be read is not writable
  if (getObjValue(record.oid(), current) == -1) {
    Output::print("setSnmpValue::select 0x%04x error!\n", record.oid());
    return -1;
  }
  record.setObjLen(current.objLen());  // also where the write is refused
  if (!current.writable()) return -1;
  ObjAttributes mapping;
  if (catalogue.findAttributes(record.oid(), mapping) != 0) return -1;
  if (toDevice(*_pConvertStrategy, mapping.covMethod, current, isAddress, record) == -1) return -1;
  return setObjValue(record.oid(), record);
}

}  // namespace norva
