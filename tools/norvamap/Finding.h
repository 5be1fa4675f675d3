// What `norvamap check` has to say. Findings about several rows of one column with the same text
// are one finding.

#ifndef NORVA_MAPPING_FINDING_H_
#define NORVA_MAPPING_FINDING_H_

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace norva::mapping {

enum class Severity { kWarning, kError };

struct Finding {
  std::string file;   ///< the database or the object file
  std::string table;  ///< empty for the object file
  Severity severity = Severity::kWarning;
  std::string text;   ///< what is wrong, and what a manager would see
  std::string group;  ///< findings of one group and text are one; empty: never
  std::vector<int> rows;
  std::vector<std::uint16_t> objects;
};

class Findings {
 public:
  void add(Finding finding);
  const std::vector<Finding>& all() const { return findings_; }
  bool hasErrors() const;

  /// One line each: "FILE: TABLE row N (object 0x....) and 31 more: error: text".
  std::string asText() const;
  std::string asJson() const;

 private:
  std::vector<Finding> findings_;
  std::map<std::pair<std::string, std::string>, std::size_t> placeOf_;  // by group and text
};

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_FINDING_H_
