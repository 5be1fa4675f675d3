#include "ObjectStore.h"

#include "ByteOrder.h"
#include "ObjectProtocol.h"

namespace norva::dasunit {

namespace {

constexpr std::size_t kSetReplyOid = 2;
constexpr std::size_t kSetReplySize = 4;

Bytes getReply(const DeviceObject& object) {
  Bytes frame(kReplyValue);
  frame[kFrameCommand] = kCommandGetReply;
  frame[kFrameObjLen] = object.objLen();
  storeLe16(frame.data() + kReplyAttr, object.attr());
  storeLe16(frame.data() + kReplyOid, object.id());
  const auto value = object.wireValue();
  frame.insert(frame.end(), value.begin(), value.end());
  return frame;
}

Bytes setReply(const DeviceObject& object) {
  Bytes frame(kSetReplySize);
  frame[kFrameCommand] = kCommandSetReply;
  frame[kFrameObjLen] = object.objLen();
  storeLe16(frame.data() + kSetReplyOid, object.id());
  return frame;
}

/// Shaped like a get reply without a value, so that the agent names the object when it complains.
Bytes refusal(std::uint16_t id) {
  Bytes frame(kReplyValue);
  frame[kFrameCommand] = kCommandRefused;
  frame[kFrameObjLen] = kObjLenOverhead;
  storeLe16(frame.data() + kReplyOid, id);
  return frame;
}

bool accepts(const DeviceObject& object, std::span<const std::uint8_t> setRequest) {
  return object.writable() && setRequest[kFrameObjLen] == object.objLen() &&
         setRequest.size() == kRequestValue + object.wireValue().size();
}

}  // namespace

void ObjectStore::add(const std::vector<DeviceObject>& objects) {
  const std::lock_guard lock(mutex_);
  for (const DeviceObject& object : objects) objects_.insert_or_assign(object.id(), object);
}

std::size_t ObjectStore::size() const {
  const std::lock_guard lock(mutex_);
  return objects_.size();
}

DeviceObject ObjectStore::get(std::uint16_t id) const {
  const std::lock_guard lock(mutex_);
  return const_cast<ObjectStore*>(this)->find(id);
}

void ObjectStore::set(std::uint16_t id, std::string_view word) {
  const std::lock_guard lock(mutex_);
  DeviceObject& object = find(id);
  if (object.kind() != ValueKind::kText) {
    object.setInteger(parseInteger(word, "value", -std::int64_t{UINT32_MAX}, UINT32_MAX));
  } else if (isQuoted(word)) {
    object.setText(decodeText(word));
  } else {
    object.setText(word);
  }
}

void ObjectStore::remove(std::uint16_t id) {
  const std::lock_guard lock(mutex_);
  objects_.erase(find(id).id());
}

Bytes ObjectStore::answer(std::span<const std::uint8_t> request) {
  if (request.size() < kRequestValue) return refusal(0);
  const std::uint16_t id = loadLe16(request.data() + kRequestOid);
  const std::uint8_t command = request[kFrameCommand];

  const std::lock_guard lock(mutex_);
  const auto found = objects_.find(id);
  const bool known = found != objects_.end();
  switch (command) {
    case kCommandGetRequest:
      ++roundTrips_[id].gets;
      return known ? getReply(found->second) : refusal(id);
    case kCommandSetRequest:
      ++roundTrips_[id].sets;
      if (!known || !accepts(found->second, request)) return refusal(id);
      found->second.setWireValue(request.subspan(kRequestValue));
      return setReply(found->second);
    default:
      return refusal(id);
  }
}

RoundTrips ObjectStore::roundTrips(std::uint16_t id) const {
  const std::lock_guard lock(mutex_);
  const auto found = roundTrips_.find(id);
  return found == roundTrips_.end() ? RoundTrips{} : found->second;
}

void ObjectStore::resetRoundTrips() {
  const std::lock_guard lock(mutex_);
  roundTrips_.clear();
}

DeviceObject& ObjectStore::find(std::uint16_t id) {
  const auto found = objects_.find(id);
  if (found == objects_.end()) throw InputError("no object " + formatObjectId(id));
  return found->second;
}

}  // namespace norva::dasunit
