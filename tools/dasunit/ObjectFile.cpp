#include "ObjectFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>

namespace norva::dasunit {

namespace {

constexpr std::int64_t kMaxInteger = UINT32_MAX;

/// Positions of the words of a line; `step` and its number may follow.
enum Word : std::size_t { kId, kKind, kWidth, kAccess, kValue, kStep, kStepNumber };

bool parseAccess(std::string_view word) {
  if (word == "rw") return true;
  if (word == "ro") return false;
  throw InputError("unknown access '" + std::string(word) + "': ro or rw");
}

/// `text` with every {n} replaced by the position.
std::string numbered(std::string text, std::int64_t position) {
  constexpr std::string_view kMark = "{n}";
  const std::string number = std::to_string(position);
  for (std::size_t at = 0; (at = text.find(kMark, at)) != std::string::npos; at += number.size()) {
    text.replace(at, kMark.size(), number);
  }
  return text;
}

std::int64_t parseStep(const std::vector<std::string>& words) {
  if (words.size() == kStep) return 0;
  if (words[kStep] != "step") throw InputError("unexpected '" + words[kStep] + "'");
  if (words.size() == kStepNumber) throw InputError("'step' without a number");
  if (words.size() > kStepNumber + 1) {
    throw InputError("unexpected '" + words[kStepNumber + 1] + "'");
  }
  return parseInteger(words[kStepNumber], "step", -kMaxInteger, kMaxInteger);
}

}  // namespace

std::vector<DeviceObject> parseObjectLine(std::string_view line) {
  const std::vector<std::string> words = splitWords(line);
  if (words.empty()) return {};
  if (words.size() <= kValue) {
    throw InputError("incomplete: an object has id, kind, width, access and value");
  }

  const std::size_t dash = words[kId].find('-');
  const bool isRange = dash != std::string::npos;
  const std::uint16_t first = parseObjectId(words[kId].substr(0, dash));
  const std::uint16_t last = isRange ? parseObjectId(words[kId].substr(dash + 1)) : first;
  if (last < first) throw InputError("the range " + words[kId] + " ends before it begins");

  const ValueKind kind = parseKind(words[kKind]);
  const std::int64_t width = parseInteger(words[kWidth], "width", 0, kMaxInteger);
  const bool writable = parseAccess(words[kAccess]);
  const std::int64_t step = parseStep(words);
  if (words.size() > kStep && (!isRange || kind == ValueKind::kText)) {
    throw InputError("'step' is for ranges of integers");
  }

  std::vector<DeviceObject> objects;
  for (std::int64_t index = 0; index <= last - first; ++index) {
    DeviceObject object(static_cast<std::uint16_t>(first + index), kind, width, writable);
    if (kind == ValueKind::kText) {
      object.setText(decodeText(isRange ? numbered(words[kValue], index + 1) : words[kValue]));
    } else {
      object.setInteger(parseInteger(words[kValue], "value", -kMaxInteger, kMaxInteger) +
                        index * step);
    }
    objects.push_back(object);
  }
  return objects;
}

std::vector<DeviceObject> parseObjects(std::istream& input, const std::string& name) {
  std::vector<DeviceObject> objects;
  std::map<std::uint16_t, int> definedAt;
  std::string line;
  for (int number = 1; std::getline(input, line); ++number) {
    try {
      for (const DeviceObject& object : parseObjectLine(line)) {
        const auto [earlier, isNew] = definedAt.emplace(object.id(), number);
        if (!isNew) {
          throw InputError("object " + formatObjectId(object.id()) +
                           " is already defined in line " + std::to_string(earlier->second));
        }
        objects.push_back(object);
      }
    } catch (const InputError& error) {
      throw InputError(name + ":" + std::to_string(number) + ": " + error.what());
    }
  }
  if (input.bad()) throw InputError(name + ": cannot be read");
  return objects;
}

std::vector<DeviceObject> readObjectFile(const std::string& path) {
  std::ifstream input(path);
  if (!input) throw InputError(path + ": " + std::strerror(errno));
  return parseObjects(input, path);
}

}  // namespace norva::dasunit
