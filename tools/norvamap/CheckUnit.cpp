#include <algorithm>
#include <map>
#include <set>

#include "AsnType.h"
#include "DataManage.h"
#include "ObjectProtocol.h"
#include "Reports.h"
#include "RowCheck.h"
#include "SnmpObjConvertStrategy.h"
#include "View.h"

namespace norva::mapping {

namespace {

using dasunit::DeviceObject;

ObjValue recordOf(const DeviceObject& object) {
  std::uint8_t frame[kMinGetReplyBuffer] = {};
  const auto value = object.wireValue();
  std::copy(value.begin(), value.end(), frame + kReplyValue);
  ObjValue record;
  record.setObjLen(object.objLen());
  record.setAttr(object.attr());
  decodeGetReplyValue(frame, record);
  return record;
}

std::string describe(const DeviceObject& object) {
  const int width = object.objLen() - kObjLenOverhead;
  switch (object.kind()) {
    case ValueKind::kUnsigned:
      return format("an unsigned integer of %d bytes", width);
    case ValueKind::kSigned:
      return format("a signed integer of %d bytes", width);
    case ValueKind::kText:
      return format("a text of %d bytes", width);
    case ValueKind::kOther:
      break;
  }
  return format("of kind 'other' with %d bytes", width);
}

/// What is wrong with showing `object` under a type and a method; empty when nothing is.
std::string mismatch(const DeviceObject& object, std::uint16_t type, std::uint16_t covMethod) {
  const bool makesText = SnmpObjConvertStrategy::makesText(covMethod);
  const bool isText = object.kind() == ValueKind::kText;
  const bool isFourBytes = object.objLen() == kObjLenLong;
  const auto method = static_cast<ConversionMethod>(methodOf(covMethod));
  // Whatever the unit holds; said already.
  if (typeName(type) == nullptr || !canBeAnswered(type, covMethod)) return {};
  if (method == ConversionMethod::kTimeText) return {};
  if (!viewOf(recordOf(object), type, covMethod).isAnswered) {
    return describeType(type) + " has no value for it: GET answers noSuchInstance";
  }
  if (isText && (method == ConversionMethod::kFixedText || method == ConversionMethod::kLowHalf)) {
    return format("method %X reads its first four bytes as a number", methodOf(covMethod));
  }
  if (makesText && method != ConversionMethod::kFixedText && !isFourBytes) {
    return format("method %X makes an address of the first four bytes", methodOf(covMethod));
  }
  if (object.kind() == ValueKind::kOther && !isFourBytes) {
    return "integers of that kind are not widened: the number shown is too large";
  }
  if (makesText) return {};
  if (isText && type == kAsnInteger) return "INTEGER sends its first four bytes as a number";
  if (!isText && (type == kAsnOctetString || type == kAsnOpaque)) {
    return format("%s sends the bytes of the number up to the first zero", typeName(type));
  }
  if (object.kind() == ValueKind::kSigned && type != kAsnInteger && type != kAsnIpAddress) {
    return format("negative values appear as large ones under %s", typeName(type));
  }
  return {};
}

const DeviceObject* findRoot(const std::vector<DeviceObject>& objects) {
  const auto found = std::find_if(objects.begin(), objects.end(), [](const DeviceObject& object) {
    return object.id() == kObjOidPrefix;
  });
  return found == objects.end() ? nullptr : &*found;
}

class UnitCheck {
 public:
  UnitCheck(const Mapping& mapping, const std::vector<DeviceObject>& objects,
            const std::string& file, Findings& findings)
      : mapping_(mapping), file_(file), findings_(findings) {
    for (const DeviceObject& object : objects) objects_.emplace(object.id(), object);
    noteRows(mapping.raw().scalars, kScalarTable, scalarRows_);
    noteRows(mapping.raw().cells, kCellTable, cellRows_);
  }

  void run() {
    for (const ServedObject& served : mapping_.objects()) {
      if (!served.isIndex) checkMapped(served);
    }
    for (const auto& [objId, object] : objects_) {
      if (!isKnown(objId)) {
        findings_.add({file_,
                       "",
                       Severity::kWarning,
                       "mapped by no row: no manager sees it",
                       "unmapped",
                       {},
                       {objId}});
      }
    }
  }

 private:
  using RowByObject = std::map<std::uint16_t, int>;

  static void noteRows(const RawTable& table, const MappingTable& layout, RowByObject& rows) {
    if (!table.isUsable()) return;
    for (const RawRow& row : table.rows) {
      const auto& cell = row.cells[kMappingObjId];
      if (!cell) continue;
      const auto objId = readNumber(*cell, layout[kMappingObjId]).value;
      rows.try_emplace(static_cast<std::uint16_t>(objId), row.number);
    }
  }

  /// Mapped, or read by the agent for itself.
  bool isKnown(std::uint16_t objId) const {
    const bool isSetting = objId == kObjOidPrefix || objId == kObjNotificationVersion ||
                           objId == kObjHeartBeatInterval || objId == kObjHeartBeatSwitch;
    return isSetting || scalarRows_.count(objId) != 0 || cellRows_.count(objId) != 0;
  }

  void checkMapped(const ServedObject& served) {
    const auto found = objects_.find(served.objId);
    if (found == objects_.end()) {
      report(served, Severity::kError,
             std::string("the unit has no such object: ") + noAnswer(served.table >= 0));
      return;
    }
    const DeviceObject& object = found->second;
    const std::string wrong = mismatch(object, served.info.asnType, served.info.covMethod);
    if (!wrong.empty()) {
      report(served, Severity::kError, "the unit's object is " + describe(object) + ": " + wrong);
    }
    if (served.writable && !object.writable()) {
      report(served, Severity::kError, "read-write, but read-only in the unit: a SET is refused");
    } else if (!served.writable && object.writable()) {
      report(served, Severity::kWarning, "read-only, but writable in the unit");
    }
  }

  void report(const ServedObject& served, Severity severity, const std::string& text) {
    const bool isScalar = served.table < 0;
    const RowByObject& rows = isScalar ? scalarRows_ : cellRows_;
    const std::string group =
        isScalar ? std::string() : format("%d %u", served.table, served.column);
    findings_.add({mapping_.path(),
                   (isScalar ? kScalarTable : kCellTable).name,
                   severity,
                   text,
                   group,
                   {rows.at(served.objId)},
                   {served.objId}});
  }

  const Mapping& mapping_;
  const std::string& file_;
  Findings& findings_;
  std::map<std::uint16_t, DeviceObject> objects_;
  RowByObject scalarRows_;
  RowByObject cellRows_;
};

}  // namespace

std::string rootOf(const std::vector<DeviceObject>& objects) {
  const DeviceObject* object = findRoot(objects);
  if (object == nullptr) return "";
  const std::string text(recordOf(*object).text());
  return isUsableRoot(text) ? text.substr(text.find('.')) : kFixedRoot;
}

void checkUnit(const Mapping& mapping, const std::vector<DeviceObject>& objects,
               const std::string& file, Findings& findings) {
  const std::string root = rootOf(objects);
  if (!root.empty() && root != oidText(mapping.root())) {
    findings.add({file,
                  "",
                  Severity::kError,
                  "everything stands below " + root + ", not below " + oidText(mapping.root()),
                  {},
                  {},
                  {kObjOidPrefix}});
  }
  UnitCheck(mapping, objects, file, findings).run();
}

}  // namespace norva::mapping
