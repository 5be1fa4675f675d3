#include "DataManage.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

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

/// Cuts the 32-bit integer to the width of the record's `objLen`. No range check: the low bytes
/// are kept. False for a length that is none of an integer.
bool narrowInteger(ObjValue& record) {
  const std::uint32_t integer = record.integer32();
  switch (record.objLen()) {
    case kObjLenByte:
      record.setInteger32((integer & 0xFF) << 24);
      return true;
    case kObjLenShort:
      record.setInteger32((integer & 0xFFFF) << 16);
      return true;
    case kObjLenLong:
      return true;
    default:
      return false;
  }
}

/// Brings the address in `record` into the form of a text field of its `objLen`.
void toTextField(ObjValue& record) {
  const std::uint8_t objLen = record.objLen();
  if (objLen == kObjLenLong) {
    // A field of four bytes holds the address itself. A set's frame turns four bytes around, a text
    // is read as it stands: turned here, a read gives the address back.
    std::reverse(record.value(), record.value() + 4);
  } else {
    SnmpObjConvertStrategy().toIpText(record);
    record.setObjLen(objLen);
  }
}

}  // namespace

DataManage* DataManage::getInstance() {
  static DataManage* instance = nullptr;
  if (instance == nullptr) instance = new DataManage;
  return instance;
}

DataManage::DataManage() : _pConvertStrategy(std::make_unique<SnmpObjConvertStrategy>()) {
  const std::lock_guard lock(_mutex);
  _pComPortAdapter = std::make_unique<ComPortAdapter>();
  _pComPortAdapter->open();
  Output::puts("_pComPortAdapter->open() end....");
}

DataManage::~DataManage() {
  const std::lock_guard lock(_mutex);
  _pComPortAdapter.reset();
}

std::unique_lock<std::mutex> DataManage::lockUnit(std::uint16_t oid) {
  std::unique_lock lock(_mutex, std::try_to_lock);
  if (lock.owns_lock()) return lock;
  const unsigned before = _timeouts;
  lock.lock();
  // The other thread has found the unit silent: that time was waited here too.
  if (_timeouts != before) {
    Output::print("object 0x%04x: not asked for, the unit is silent\n", oid);
    lock.unlock();
  }
  return lock;
}

int DataManage::getObjValue(std::uint16_t oid, ObjValue& record) {
  const auto lock = lockUnit(oid);
  if (!lock.owns_lock()) return kFailed;
  const GetRequest request = encodeGetRequest(oid);
  _pComPortAdapter->flush();
  if (_pComPortAdapter->write(request.data(), request.size()) == -1) {
    Output::puts("DataManage::getObjValue  writeData error!");
    return kFailed;
  }
  alignas(long) std::uint8_t reply[ComPortAdapter::kTypeSize + kGetReplyLimit];
  const ReplyTimer::Wait wait(_pComPortAdapter->replyTimer());
  GetReplyHeader header{};
  do {
    // As far as it is looked at, so that a short reply reads as zeros.
    std::memset(reply, 0, ComPortAdapter::kTypeSize + kMinGetReplyBuffer);
    if (_pComPortAdapter->read(reply, kGetReplyLimit) == -1) {
      const int error = errno;
      Output::puts("DataManage::getObjValue  readData error!");
      afterFailedRead(oid, error);
      return kFailed;
    }
    header = decodeGetReplyHeader(reply);
  } while (isLate(header, oid));

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
  return 0;
}

int DataManage::setObjValue(std::uint16_t oid, const ObjValue& record) {
  const auto lock = lockUnit(oid);
  if (oid == kObjHeartBeatInterval) heartBeatIntervalChanged = true;
  if (oid == kObjHeartBeatSwitch) heartBeatSwFlagChanged = true;
  if (!lock.owns_lock()) return kFailed;

  if (Trace::enabled()) {
    TraceLine line;
    line.text("cmd is ").decimal(kCommandSetRequest);
    line.text(", objLen is ").decimal(record.objLen()).text(" \n");
    if (!isSetLength(record.objLen())) line.text("\nDataManage::setObjValue error obj type!");
    line.print();
  }
  SetRequest request;
  const std::size_t size = encodeSetRequest(oid, record, request);
  _pComPortAdapter->flush();
  _pComPortAdapter->write(request.data(), size);
  alignas(long) std::uint8_t reply[ComPortAdapter::kTypeSize + kSetReplyLimit];
  const ReplyTimer::Wait wait(_pComPortAdapter->replyTimer());
  do {
    std::memset(reply, 0, ComPortAdapter::kTypeSize + 1);  // as far as it is looked at
    if (_pComPortAdapter->read(reply, kSetReplyLimit) == -1) {
      afterFailedRead(oid, errno);
      return kFailed;
    }
  } while (isLate(reply[kFrameCommand]));
  return reply[kFrameCommand] == kCommandSetReply ? 0 : kFailed;
}

bool DataManage::isLate(const GetReplyHeader& header, std::uint16_t oid) const {
  if (!_pComPortAdapter->replyTimer().isLimited()) return false;
  return header.command == kCommandSetReply ||
         (header.command == kCommandGetReply && header.oid != oid);
}

bool DataManage::isLate(std::uint8_t command) const {
  return _pComPortAdapter->replyTimer().isLimited() && command == kCommandGetReply;
}

void DataManage::afterFailedRead(std::uint16_t oid, int error) {
  if (error == ETIMEDOUT) {
    ++_timeouts;
    Output::print("object 0x%04x: no reply of the unit in time\n", oid);
  } else if (error == E2BIG && _pComPortAdapter->dropReply()) {
    Output::puts("reply too large to receive, taken off the queue");
  }
}

void DataManage::limitWaits(std::chrono::seconds limit) {
  _pComPortAdapter->replyTimer().limit(limit);
}

int DataManage::readAlarm(std::uint8_t* buffer, std::size_t length) {
  return _pComPortAdapter->readAlarm(buffer, length);
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
  if (present(*_pConvertStrategy, mapping.covMethod, record, made) == -1) return -1;
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
  record.setObjLen(current.objLen());
  if (!current.writable()) return -1;
  ObjAttributes mapping;
  if (catalogue.findAttributes(record.oid(), mapping) != 0) return -1;
  record.setAttr(current.attr());  // the device knows whether the integer is signed
  if (isAddress && current.kind() == ValueKind::kText) toTextField(record);
  if (_pConvertStrategy->convertToObj(mapping.covMethod, record) == -1) return -1;

  if (current.kind() == ValueKind::kText) {
    if (static_cast<int>(record.text().size()) > current.objLen() - kObjLenOverhead) return -1;
  } else if (!narrowInteger(record)) {
    return -1;
  }
  return setObjValue(record.oid(), record);
}

}  // namespace norva
