#include "AnswerValue.h"

#include <arpa/inet.h>

#include <cstring>
#include <string>

#include "AsnType.h"
#include "SnmpObjConvertStrategy.h"

namespace norva {

namespace {

constexpr std::size_t kIpAddressSize = 4;

}  // namespace

AnswerValue::AnswerValue(std::uint16_t asnType, const ObjValue& record, Presentation presentation)
    : _type(static_cast<std::uint8_t>(asnType)) {
  const bool isInteger = presentation.form == Presentation::kInteger;
  if (asnType == kAsnInteger || (isInteger32(_type) && isInteger)) {
    setInteger(record.integer32());
    return;
  }
  switch (_type) {
    case kAsnOctetString:
    case kAsnOpaque: {
      const std::string_view text = record.text();
      set(text.data(), text.size());
      break;
    }
    case kAsnIpAddress:
      setAddress(record, presentation);
      break;
    case kAsnCounter64:
      if (isInteger) {
        const unsigned long highAndLow[] = {0, record.integer32()};
        set(highAndLow, sizeof highAndLow);
      }
      break;
    default:
      break;
  }
}

std::uint32_t AnswerValue::integer() const {
  std::uint32_t number = 0;
  std::memcpy(&number, _bytes, sizeof number);
  if (_type != kAsnCounter64) return number;
  unsigned long highAndLow[2];
  std::memcpy(highAndLow, _bytes, sizeof highAndLow);
  return static_cast<std::uint32_t>(highAndLow[1]);
}

void AnswerValue::set(const void* bytes, std::size_t size) {
  _valid = true;
  _size = size;
  std::memcpy(_bytes, bytes, size);
}

void AnswerValue::setInteger(std::uint32_t integer) {
  set(&integer, sizeof integer);
}

void AnswerValue::setAddress(const ObjValue& record, Presentation presentation) {
  const bool isFourBytes = presentation.deviceLen == kObjLenLong;
  const std::string_view text = record.text();
  switch (presentation.form) {
    case Presentation::kInteger:
      if (isFourBytes) set(record.value(), kIpAddressSize);
      return;
    case Presentation::kTextField:
      if (isFourBytes || text.size() == kIpAddressSize) {
        set(record.value(), kIpAddressSize);
        return;
      }
      break;
    case Presentation::kMadeText:
      break;
  }
  in_addr address{};
  if (inet_pton(AF_INET, std::string(text).c_str(), &address) == 1) {
    set(&address, sizeof address);
  }
}

AnswerValue answerFor(std::uint16_t asnType, std::uint16_t covMethod, ObjValue record) {
  Presentation presentation;
  if (toManager(SnmpObjConvertStrategy(), covMethod, record, presentation) == -1) return {};
  return {asnType, record, presentation};
}

}  // namespace norva
