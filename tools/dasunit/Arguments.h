// The words behind a control command: options are taken out by name, the rest in order.

#ifndef NORVA_DASUNIT_ARGUMENTS_H_
#define NORVA_DASUNIT_ARGUMENTS_H_

#include <algorithm>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Text.h"

namespace norva::dasunit {

class Arguments {
 public:
  explicit Arguments(std::vector<std::string> words) : words_(std::move(words)) {}

  bool empty() const { return words_.empty(); }

  /// The next word. Throws InputError, which calls it `what`, when there is none.
  std::string next(const std::string& what) {
    if (words_.empty()) throw InputError("missing " + what);
    std::string word = std::move(words_.front());
    words_.erase(words_.begin());
    return word;
  }

  /// The word behind the option, both taken out; nothing without the option.
  std::optional<std::string> option(const std::string& name) {
    const auto found = std::find(words_.begin(), words_.end(), name);
    if (found == words_.end()) return std::nullopt;
    if (found + 1 == words_.end()) throw InputError(name + " needs a value");
    std::string value = std::move(*(found + 1));
    words_.erase(found, found + 2);
    return value;
  }

  std::optional<std::int64_t> numberOption(const std::string& name, std::int64_t low,
                                           std::int64_t high) {
    const std::optional<std::string> value = option(name);
    if (!value) return std::nullopt;
    return parseInteger(*value, name, low, high);
  }

  bool flag(const std::string& name) { return std::erase(words_, name) > 0; }

  /// All words left, joined by blanks.
  std::string rest() {
    std::string joined;
    for (const std::string& word : std::exchange(words_, {})) {
      if (!joined.empty()) joined += ' ';
      joined += word;
    }
    return joined;
  }

  /// Throws InputError when words are left.
  void end() const {
    if (!words_.empty()) throw InputError("unexpected '" + words_.front() + "'");
  }

 private:
  std::vector<std::string> words_;
};

}  // namespace norva::dasunit

#endif  // NORVA_DASUNIT_ARGUMENTS_H_
