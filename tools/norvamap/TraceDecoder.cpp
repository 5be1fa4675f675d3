#include "TraceDecoder.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "ByteOrder.h"
#include "DeviceForm.h"
#include "ObjectProtocol.h"
#include "SnmpObjConvertStrategy.h"
#include "Text.h"
#include "TrapMessage.h"
#include "View.h"

namespace norva::mapping {

namespace {

/// Printed without an end, so that the bytes of the set request follow in the same line.
constexpr char kOddSetText[] = "DataManage::setObjValue error obj type!";
constexpr std::size_t kTokenSize = 3;  // two digits and a blank
constexpr std::size_t kSetReplyHead = 1;

bool isByte(const std::string& token) {
  const auto isDigit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  return token.size() == kTokenSize && isDigit(token[0]) && isDigit(token[1]) && token[2] == ' ';
}

/// Whether more characters can make the text a byte.
bool canBecomeByte(const std::string& token) {
  return token.size() < kTokenSize && isByte(token + std::string("00 ").substr(token.size()));
}

bool isEventType(const std::uint8_t* event) {
  const std::uint32_t type = loadBe32(event);
  return type >= 1 && type <= 4;
}

std::string hexText(const std::vector<std::uint8_t>& bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) text += format("%s%02x", text.empty() ? "" : " ", byte);
  return text;
}

/// The value as the unit has it.
std::string unitValue(const ObjValue& record) {
  const int width = record.objLen() - kObjLenOverhead;
  if (record.kind() == ValueKind::kText) {
    const std::string_view all(
        reinterpret_cast<const char*>(record.value()),
        static_cast<std::size_t>(std::clamp(width, 0, static_cast<int>(ObjValue::kValueSize))));
    return format("text %d, ", width) + inQuotes(all.substr(0, all.find_last_not_of('\0') + 1));
  }
  const bool isSigned = record.kind() == ValueKind::kSigned;
  ObjValue widened = record;
  if (!isSigned) widened.setAttr(0);
  Presentation presentation;
  if (toManager(SnmpObjConvertStrategy(), 0, widened, presentation) == -1) return "odd length";
  const std::uint32_t integer = widened.integer32();
  const char* const kind = isSigned                             ? "signed"
                           : record.kind() == ValueKind::kOther ? "other"
                                                                : "unsigned";
  return format("%s %d, ", kind, width) +
         (isSigned ? std::to_string(static_cast<std::int32_t>(integer)) : std::to_string(integer));
}

}  // namespace

void TraceDecoder::feed(std::string_view text) {
  for (const char c : text) takeCharacter(c);
  if (inBytes_) takeFrames(false);
}

void TraceDecoder::finish() {
  if (inBytes_) endOfBytes();
  if (!line_.empty()) endOfLine();
}

void TraceDecoder::takeCharacter(char c) {
  if (!inBytes_) {
    if (c == '\n') {
      endOfLine();
      return;
    }
    line_ += c;
    if (line_ == kOddSetText) endOfLine();
    return;
  }
  // One message of the agent ends with a blank behind its line.
  if (c == ' ' && token_.empty() && bytes_.empty() && !hadFrame_ && line_.empty()) {
    line_ = " ";
    return;
  }
  token_ += c;
  if (isByte(token_)) {
    bytes_.push_back(static_cast<std::uint8_t>(std::stoul(token_, nullptr, 16)));
    token_.clear();
    line_.clear();
  } else if (!canBecomeByte(token_)) {
    endOfBytes();
    const std::string rest = std::move(token_);
    token_.clear();
    for (const char again : rest) takeCharacter(again);
  }
}

void TraceDecoder::endOfBytes() {
  takeFrames(true);
  inBytes_ = false;
  if (token_.size() < kTokenSize && canBecomeByte(token_)) {
    line_ += token_;
    token_.clear();
  }
}

void TraceDecoder::endOfLine() {
  if (!line_.empty() || !hadFrame_) sink_(line_, false);
  line_.clear();
  inBytes_ = true;
  hadFrame_ = false;
}

bool TraceDecoder::isGetRequest(std::size_t at) const {
  if (bytes_.size() < at + kGetRequestSize) return false;
  const auto frame = bytes_.begin() + static_cast<std::ptrdiff_t>(at);
  return frame[kFrameCommand] == kCommandGetRequest && frame[kFrameObjLen] == kObjLenLong &&
         std::all_of(frame + kRequestValue, frame + kGetRequestSize,
                     [](std::uint8_t byte) { return byte == 0; });
}

bool TraceDecoder::isEvent(std::size_t at) const {
  return bytes_.size() >= at + TrapMessage::kSize && isEventType(bytes_.data() + at);
}

bool TraceDecoder::canBecomeEvent(std::size_t at) const {
  if (bytes_.size() >= at + TrapMessage::kSize) return false;
  std::array<std::uint8_t, 4> type{0, 0, 0, 1};
  std::copy_n(bytes_.begin() + static_cast<std::ptrdiff_t>(at),
              std::min(type.size(), bytes_.size() - at), type.begin());
  return isEventType(type.data());
}

std::size_t TraceDecoder::nextFrame(std::size_t at, bool isLast) const {
  for (; at < bytes_.size() && !isGetRequest(at) && !isEvent(at); ++at) {
    if (!isLast && canBecomeEvent(at)) return bytes_.size();
  }
  return at;
}

std::size_t TraceDecoder::frameSize(std::size_t at, bool isLast) const {
  const std::size_t left = bytes_.size() - at;
  if (isGetRequest(at)) return kGetRequestSize;
  if (isEvent(at)) return TrapMessage::kSize;
  if (!isLast && canBecomeEvent(at)) return 0;
  std::size_t size = 0;  // of a frame that tells its own
  if (left > kFrameObjLen) {
    if (bytes_[at] == kCommandGetReply) size = bytes_[at + kFrameObjLen] + std::size_t{3};
    if (bytes_[at] == kCommandSetRequest) size = bytes_[at + kFrameObjLen] + std::size_t{1};
  }
  if (size != 0 && (size <= left || !isLast)) return size <= left ? size : 0;
  // A set reply, or bytes that are none of the protocol: up to what comes next.
  const std::size_t next = nextFrame(at + kSetReplyHead, isLast);
  return isLast || next < bytes_.size() ? next - at : 0;
}

void TraceDecoder::takeFrames(bool isLast) {
  std::size_t at = 0;
  while (at < bytes_.size()) {
    const std::size_t size = frameSize(at, isLast);
    if (size == 0) break;
    const auto first = bytes_.begin() + static_cast<std::ptrdiff_t>(at);
    const std::vector<std::uint8_t> frame(first, first + static_cast<std::ptrdiff_t>(size));
    if (const std::string told = words(frame); !told.empty()) {
      sink_(told, true);
      hadFrame_ = true;
    } else if (at + size < bytes_.size()) {
      sink_(hexText(frame), false);
      hadFrame_ = true;
    } else if (isLast) {
      line_ = hexText(frame) + ' ';  // a frame of no kind, or a word that looks like a byte
    } else {
      break;
    }
    at += size;
  }
  bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<std::ptrdiff_t>(at));
}

std::string TraceDecoder::words(const std::vector<std::uint8_t>& frame) {
  switch (frame[kFrameCommand]) {
    case kCommandGetRequest:
      if (frame.size() != kGetRequestSize) break;
      return "get  " + objectWords(loadLe16(frame.data() + kRequestOid));
    case kCommandGetReply:
      if (frame.size() < kReplyValue) break;
      return replyWords(frame);
    case kCommandSetRequest:
      if (frame.size() < kRequestValue || frame.size() != frame[kFrameObjLen] + std::size_t{1}) {
        break;
      }
      return setWords(frame);
    case kCommandSetReply:
      return "done";
    default:
      if (frame.size() == TrapMessage::kSize) return eventWords(frame);
      break;
  }
  return "";
}

std::string TraceDecoder::replyWords(const std::vector<std::uint8_t>& frame) {
  const std::uint16_t objId = loadLe16(frame.data() + kReplyOid);
  attributes_[objId] = loadLe16(frame.data() + kReplyAttr);
  return "got  " + objectWords(objId) + ": " + valueWords(objId, frame);
}

std::string TraceDecoder::setWords(const std::vector<std::uint8_t>& frame) const {
  const std::uint16_t objId = loadLe16(frame.data() + kRequestOid);
  // The request does not say what kind of object it is; the read before it did.
  const auto known = attributes_.find(objId);
  const std::uint8_t objLen = frame[kFrameObjLen];
  const bool isInteger = objLen == kObjLenByte || objLen == kObjLenShort || objLen == kObjLenLong;
  const auto guessed = static_cast<std::uint16_t>(
      static_cast<unsigned>(isInteger ? ValueKind::kUnsigned : ValueKind::kText) << 8);
  std::vector<std::uint8_t> reply(kReplyValue);
  reply[kFrameCommand] = kCommandGetReply;
  reply[kFrameObjLen] = objLen;
  storeLe16(reply.data() + kReplyAttr, known == attributes_.end() ? guessed : known->second);
  reply.insert(reply.end(), frame.begin() + kRequestValue, frame.end());
  return "set  " + objectWords(objId) + ": " + valueWords(objId, reply);
}

std::string TraceDecoder::eventWords(const std::vector<std::uint8_t>& frame) const {
  const TrapMessage event(frame.data(), frame.size());
  return format("event type %d, %s, ", event.msgType(), event.cleared() ? "cleared" : "raised") +
         objectWords(event.objId());
}

std::string TraceDecoder::objectWords(std::uint16_t objId) const {
  const ServedObject* object = mapping_.findObject(objId);
  return dasunit::formatObjectId(objId) +
         (object == nullptr ? " (not mapped)" : ' ' + inQuotes(object->info.name));
}

std::string TraceDecoder::valueWords(std::uint16_t objId,
                                     const std::vector<std::uint8_t>& frame) const {
  std::vector<std::uint8_t> reply = frame;
  reply.resize(std::max(reply.size(), kMinGetReplyBuffer));
  const GetReplyHeader header = decodeGetReplyHeader(reply.data());
  ObjValue record;
  record.setObjLen(header.objLen);
  record.setAttr(header.attr);
  if (!decodeGetReplyValue(reply.data(), record)) return "a number of odd length, not answered";
  std::string text = unitValue(record) + (record.writable() ? ", rw" : ", ro");
  const ServedObject* object = mapping_.findObject(objId);
  if (object == nullptr) return text;
  if (static_cast<ConversionMethod>(methodOf(object->info.covMethod)) ==
      ConversionMethod::kTimeText) {
    return text + " -> the agent's clock";
  }
  const View view = viewOf(record, object->info.asnType, object->info.covMethod);
  if (!view.isAnswered) return text + " -> no value under " + describeType(object->info.asnType);
  return text + " -> " + describeType(object->info.asnType) + ' ' + view.value;
}

}  // namespace norva::mapping
