#include "RowCheck.h"

#include <algorithm>
#include <cstdlib>

#include "AsnType.h"
#include "DataManage.h"
#include "Format.h"
#include "ServedObjects.h"
#include "SnmpObjConvertStrategy.h"
#include "View.h"

namespace norva::mapping {

namespace {

constexpr std::uint16_t kReadOnly = 1;
/// Bytes that managers' tools take of a text in a notification.
constexpr std::size_t kMaxShownName = 255;

bool isText(std::uint16_t type) {
  return (type & 0xFF) == kAsnOctetString || (type & 0xFF) == kAsnOpaque;
}

/// What a manager can do to the agent by writing one of its own settings; null for other objects.
const char* settingRisk(std::uint16_t objId) {
  switch (objId) {
    case kObjOidPrefix:
      return "whoever writes it moves every object to another OID at the next start";
    case kObjNotificationVersion:
      return "whoever writes it changes the notifications' context at the next start";
    case kObjHeartBeatInterval:
      return "whoever writes 0 to it makes heartbeats leave without a pause";
    case kObjHeartBeatSwitch:
      return "whoever writes it switches the heartbeat";
    default:
      return nullptr;
  }
}

}  // namespace

const char* noAnswer(bool isCell) {
  return isCell ? "GET answers noSuchInstance, a walk leaves the table there"
                : "GET answers noSuchInstance";
}

RowCheck::RowCheck(const std::string& file, const MappingTable& table, const RawRow& row,
                   Findings& findings)
    : file_(file), table_(table), row_(row), findings_(findings) {
  for (int column = 0; column < kMappingColumns; ++column) {
    const auto& cell = row.cells[index(column)];
    if (!cell || table_[column].base == 0) continue;
    const ReadNumber read = readNumber(*cell, table_[column]);
    numbers_[index(column)] = read.value;
    isSound_[index(column)] = read.problem.empty();
  }
}

void RowCheck::report(Severity severity, const std::string& text) {
  findings_.add({file_, table_.name, severity, text, group_, {row_.number}, {objId()}});
}

bool RowCheck::checkNumbers() {
  for (int column = 0; column < kMappingColumns; ++column) {
    if (row_.cells[index(column)] || column == table_.objName) continue;
    error(format("%s is NULL: the row is not used", table_[column].name));
    return false;
  }
  for (int column = 0; column < kMappingColumns; ++column) {
    if (!row_.cells[index(column)] || table_[column].base == 0 || isSound(column)) continue;
    const std::string problem = readNumber(text(column), table_[column]).problem;
    if (table_[column].isUsed) {
      error(problem);
    } else {
      warning(problem + "; no manager sees it");
    }
  }
  return true;
}

void RowCheck::checkMeaning(bool writable) {
  if (isSound(table_.type) && isSound(table_.covMethod)) checkType();
  if (isSound(table_.covMethod)) checkMethod(writable);
  if (isSound(table_.access)) checkAccess(writable);
  checkName();
  checkSetting(writable);
}

std::optional<std::uint16_t> RowCheck::otherBase(int column) const {
  const int base = table_[column].base == 16 ? 10 : 16;
  char* end = nullptr;
  const unsigned long value = std::strtoul(text(column).c_str(), &end, base);
  if (*end != '\0') return std::nullopt;
  return static_cast<std::uint16_t>(value);
}

void RowCheck::checkType() {
  const char* const name = typeName(type());
  if (name != nullptr && type() > 0xFF) {
    warning(format("asnType %s: its low byte counts, %s", text(table_.type).c_str(), name));
  }
  if (name == nullptr) {
    std::string text = "asnType " + this->text(table_.type) + " is no type of a value";
    const auto meant = otherBase(table_.type);
    if (meant && typeName(*meant) != nullptr) {
      text += format(table_[table_.type].base == 16 ? ", it is read as hexadecimal: %s is %X here"
                                                    : ", it is read as decimal: %s is %u here",
                     typeName(*meant), *meant);
    }
    error(text + "; GET answers no value or one of the wrong type");
  } else if (!canBeAnswered(type(), method())) {
    error(format("type %s has no value for what method %X makes: %s", name, methodOf(method()),
                 noAnswer(!isScalar())));
  } else if ((type() & 0xFF) == kAsnInteger && SnmpObjConvertStrategy::makesText(method())) {
    error(format("method %X makes a text, INTEGER sends its first four bytes as a number",
                 methodOf(method())));
  } else if (isText(type()) && methodOf(method()) == kLastMethod) {
    error(format("method %X leaves a number, %s sends its bytes up to the first zero: nothing",
                 methodOf(method()), name));
  }
}

void RowCheck::checkMethod(bool writable) {
  const unsigned number = methodOf(method());
  if (number > kLastMethod) {
    const std::string text = format("covMethod %s: there is no method %X, the value stays as it is",
                                    this->text(table_.covMethod).c_str(), number);
    const auto meant = otherBase(table_.covMethod);
    if (meant && *meant != 0 && *meant <= kLastMethod) {
      error(text + format("; it is read as hexadecimal: %u is %X", *meant, *meant));
    } else {
      warning(text);
    }
    return;
  }
  const unsigned exponent = exponentOf(method());
  if (exponent == 0) return;
  const auto method = static_cast<ConversionMethod>(number);
  const std::string text = format("exponent %u without effect: ", exponent);
  if (method == ConversionMethod::kScaledInteger) {
    if (isSound(table_.type) && isText(type())) {
      warning(text + "it scales numbers, the type is a text's");
    } else if (isSound(table_.access) && !writable) {
      warning(text + "it scales what is written, and the object is read-only");
    }
  } else if (method != ConversionMethod::kFixedText) {
    warning(text + format("method %X does not scale", number));
  }
}

void RowCheck::checkAccess(bool writable) {
  const std::uint32_t access = number(table_.access);
  const std::uint16_t readWrite = isScalar() ? kScalarReadWrite : kCellReadWrite;
  if (access == kReadOnly || access == readWrite) return;
  warning(format("access %u means nothing: 1 is read-only, %u read-write; served %s", access,
                 readWrite, writable ? "read-write" : "read-only"));
}

void RowCheck::checkName() {
  const auto& name = row_.cells[index(table_.objName)];
  if (!name) {
    warning("name is NULL: the name of the row before is repeated");
  } else if (name->empty()) {
    warning(isScalar() ? "name is empty: notifications do not tell the object" : "name is empty");
  } else if (isScalar() && name->size() > kMaxShownName) {
    warning(format("name of %zu bytes: managers' tools take %zu of a notification's text",
                   name->size(), kMaxShownName));
  } else if (isScalar() &&
             std::any_of(name->begin(), name->end(), [](char c) { return c < ' ' || c > '~'; })) {
    warning(
        "name is not printable ASCII: managers' tools show notifications with it in "
        "hexadecimal");
  }
}

void RowCheck::checkSetting(bool writable) {
  const char* const risk = isSound(kMappingObjId) && writable ? settingRisk(objId()) : nullptr;
  if (risk != nullptr) warning(std::string("managers can write a setting of the agent: ") + risk);
}

}  // namespace norva::mapping
