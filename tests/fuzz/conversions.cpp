// Conversions between an object's value and its SNMP presentation, and the reader of decimal
// numbers, against the exact model; the reader of OIDs.

#include <algorithm>
#include <bit>
#include <cstring>

#include "ByteOrder.h"
#include "DeviceForm.h"
#include "ExactModel.h"
#include "Fuzz.h"
#include "SnmpObjConvertStrategy.h"

namespace norva::fuzz {
namespace {

enum Kind { kUnsigned, kSigned, kText, kOther };

/// The record as bytes that the model works on.
struct Model {
  unsigned covMethod, kind, objLen;
  Bytes value;  // 64

  unsigned method() const { return covMethod & 0xFFF; }
  unsigned exponent() const { return covMethod >> 12; }
  std::uint32_t integer() const { return loadBe32(value.data()); }
  void setInteger(std::uint32_t integer) { storeBe32(value.data(), integer); }
  std::string text() const { return {value.begin(), std::find(value.begin(), value.end(), 0)}; }
  void setText(const std::string& text) {
    std::copy(text.begin(), text.end(), value.begin());
    std::fill(value.begin() + static_cast<long>(text.size()), value.end(), std::uint8_t{0});
    objLen = static_cast<unsigned>(text.size());
  }

  /// False when an integer has no length of one.
  bool widen() {
    if (kind == kText) objLen = static_cast<unsigned>(text().size() + 3);
    if (kind == kText) return true;
    if (objLen != 4 && objLen != 5 && objLen != 7) return false;
    if (kind == kOther) return true;
    std::uint32_t whole = kind == kSigned && (value[0] & 0x80) != 0 ? 0xFFFFFFFF : 0;
    for (unsigned i = 0; i < objLen - 3; ++i) whole = whole << 8 | value[i];
    setInteger(whole);
    objLen = 7;
    return true;
  }

  void toSnmp() {
    switch (method()) {
      case 1:
      case 2:
        setText(std::to_string(value[0]) + '.' + std::to_string(value[1]) + '.' +
                std::to_string(value[2]) + '.' + std::to_string(value[3]));
        break;
      case 4:
        setText(twoDecimals(dividedByTens(asSingle(integer(), kind == kSigned), exponent())));
        break;
      case 11:
        setInteger(integer() & 0xFFFF);
        break;
      default:
        break;
    }
  }

  bool toObj() {
    if (method() == 0 && kind != kText) {
      setInteger(cut(timesTens(asDouble(integer(), kind == kSigned), exponent())));
    } else if (method() == 4) {
      const std::string digits = text();
      if (digits.empty() || digits.find_first_not_of("0123456789.") != std::string::npos) {
        return false;
      }
      std::size_t used = 0;
      setInteger(cut(timesTens(decimal(digits, used), exponent())));
    }
    return true;
  }

  ObjValue record() const {
    ObjValue made;
    made.setObjLen(static_cast<std::uint8_t>(objLen));
    made.setAttr(static_cast<std::uint16_t>(kind << 8));
    std::copy(value.begin(), value.end(), made.value());
    return made;
  }
};

void mustBeSame(const ObjValue& record, const Model& model) {
  MUST(std::memcmp(record.value(), model.value.data(), ObjValue::kValueSize) == 0);
  MUST(record.objLen() == model.objLen);
}

void checkDecimal(const std::string& text) {
  const char* end = nullptr;
  const float number = parseDecimal(text.c_str(), &end);
  std::size_t used = 0;
  const auto model = std::bit_cast<std::uint32_t>(decimal(text, used));
  MUST(end == text.c_str() + used);
  MUST(std::bit_cast<std::uint32_t>(number) == model);
  MUST(std::bit_cast<std::uint32_t>(parseDecimal(text.c_str(), nullptr)) == model);
}

void checkOid(const std::string& text, std::size_t capacity) {
  const auto dots = static_cast<std::size_t>(std::count(text.begin(), text.end(), '.'));
  std::vector<std::uint32_t> numbers(std::min(capacity, dots), 99);
  numbers.reserve(1);  // an array of none is an array
  MUST(parseOidText(text.c_str(), numbers.data(), numbers.size()) == dots);
  std::vector<std::uint32_t> all(dots + 1, 99);
  MUST(parseOidText(text.c_str(), all.data()) == dots && all.back() == 99);
  MUST(std::equal(numbers.begin(), numbers.end(), all.begin()));
}

void checkConversions(Input input) {
  static const SnmpObjConvertStrategy strategy;
  Model model{input.word(), input.byte() & 3U, input.byte(), {}};
  model.value = input.bytes(ObjValue::kValueSize);
  model.value.resize(ObjValue::kValueSize);
  const auto method = static_cast<std::uint16_t>(model.covMethod);

  if (model.method() != 3) {
    Model shown = model;
    ObjValue record = model.record();
    Presentation presentation;
    const bool isShown = toManager(strategy, method, record, presentation) == 0;
    MUST(isShown == shown.widen());
    if (isShown) {
      shown.toSnmp();
      mustBeSame(record, shown);
      MUST(presentation.deviceLen == model.objLen);
    }
  }
  Model written = model;
  ObjValue record = model.record();
  MUST((strategy.convertToObj(method, record) == 0) == written.toObj());
  mustBeSame(record, written);

  ObjValue scaled = model.record();
  MUST((strategy.scaleDown(method, scaled) == 0) == (model.kind != kText));
  if (model.kind != kText) {
    model.setInteger(
        cut(dividedByTens(asSingle(model.integer(), model.kind == kSigned), model.exponent())));
  }
  mustBeSame(scaled, model);
}

void checkTexts(Input input) {
  const std::size_t capacity = input.byte();
  const std::string text = input.rest().c_str();  // ends where its first zero does
  checkDecimal(text);
  checkOid(text, capacity);
}

}  // namespace

void run(Input input) {
  checkConversions(input);
  checkTexts(input);
}

}  // namespace norva::fuzz
