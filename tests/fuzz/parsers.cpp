// The two readers of texts, decimal numbers and OIDs, against the exact model.

#include <algorithm>
#include <bit>

#include "ExactModel.h"
#include "Fuzz.h"
#include "SnmpObjConvertStrategy.h"

namespace norva::fuzz {
namespace {

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
  const std::vector<std::uint32_t> model = oidNumbers(text);
  std::vector<std::uint32_t> numbers(std::min(capacity, model.size()), 99);
  numbers.reserve(1);  // an array of none is an array
  MUST(parseOidText(text.c_str(), numbers.data(), numbers.size()) == model.size());
  MUST(std::equal(numbers.begin(), numbers.end(), model.begin()));
  std::vector<std::uint32_t> all(model.size() + 1, 99);
  MUST(parseOidText(text.c_str(), all.data()) == model.size());
  MUST(all.back() == 99 && std::equal(model.begin(), model.end(), all.begin()));
}

}  // namespace
}  // namespace norva::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  norva::fuzz::Input input(data, size);
  const std::size_t capacity = input.byte();
  const auto bytes = input.bytes(size);
  // Ends where its first zero does, with nothing behind it.
  const std::string text(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
  norva::fuzz::checkDecimal(text);
  norva::fuzz::checkOid(text, capacity);
  return 0;
}
