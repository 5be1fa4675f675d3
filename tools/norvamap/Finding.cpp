#include "Finding.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Format.h"
#include "OneLine.h"
#include "Text.h"

namespace norva::mapping {

namespace {

const char* word(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

std::string place(const Finding& finding) {
  std::string text = finding.file + ":";
  if (!finding.table.empty()) text += ' ' + finding.table;
  if (!finding.rows.empty()) text += format(" row %d", finding.rows.front());
  if (!finding.objects.empty()) {
    const std::string object = "object " + dasunit::formatObjectId(finding.objects.front());
    text += finding.rows.empty() ? ' ' + object : " (" + object + ')';
  }
  const std::size_t count = std::max(finding.rows.size(), finding.objects.size());
  if (count > 1) text += format(" and %zu more", count - 1);
  return text;
}

}  // namespace

void Findings::add(Finding finding) {
  if (!finding.group.empty()) {
    const auto [place, isNew] =
        placeOf_.try_emplace({finding.group, finding.text}, findings_.size());
    if (!isNew) {
      Finding& same = findings_[place->second];
      same.rows.insert(same.rows.end(), finding.rows.begin(), finding.rows.end());
      same.objects.insert(same.objects.end(), finding.objects.begin(), finding.objects.end());
      return;
    }
  }
  findings_.push_back(std::move(finding));
}

bool Findings::hasErrors() const {
  return std::any_of(findings_.begin(), findings_.end(),
                     [](const Finding& finding) { return finding.severity == Severity::kError; });
}

std::string Findings::asText() const {
  std::string text;
  for (const Finding& finding : findings_) {
    text += oneLine(place(finding) + ": " + word(finding.severity) + ": " + finding.text) + '\n';
  }
  return text;
}

std::string Findings::asJson() const {
  auto list = nlohmann::ordered_json::array();
  for (const Finding& finding : findings_) {
    auto objects = nlohmann::ordered_json::array();
    for (const std::uint16_t objId : finding.objects) {
      objects.push_back(dasunit::formatObjectId(objId));
    }
    auto& entry = list.emplace_back();
    entry["file"] = finding.file;
    entry["table"] = finding.table;
    entry["rows"] = finding.rows;
    entry["objects"] = std::move(objects);
    entry["severity"] = word(finding.severity);
    entry["text"] = finding.text;
  }
  return list.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace norva::mapping
