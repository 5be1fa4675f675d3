#include "Reports.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

#include "OneLine.h"
#include "Text.h"
#include "View.h"

namespace norva::mapping {

namespace {

using Line = std::array<std::string, 9>;

const Line kHeadings = {"oid",    "name", "type",   "access", "conversion",
                        "object", "row",  "column", "remark"};

std::string remarkOf(const Mapping& mapping, const ServedObject& object) {
  const auto cause = [&] { return oidText(mapping.registrations()[object.cause].oid); };
  switch (object.doubt) {
    case Doubt::kInside:
      return "inside " + cause();
    case Doubt::kBehind:
      return "behind " + cause();
    case Doubt::kBehindHole:
      return "behind a hole";
    case Doubt::kNone:
      break;
  }
  return "";
}

Line lineOf(const Mapping& mapping, const ServedObject& object) {
  const std::string remark = remarkOf(mapping, object);
  if (object.isIndex) {
    return {oidText(object.oid),
            "",
            "INTEGER",
            "ro",
            "row number",
            "",
            std::to_string(object.row),
            std::to_string(object.column),
            remark};
  }
  const bool isCell = object.table >= 0;
  const bool hasValue = canBeAnswered(object.info.asnType, object.info.covMethod);
  return {oidText(object.oid),
          object.info.name,
          hasValue ? describeType(object.info.asnType) : "no value",
          object.writable ? "rw" : "ro",
          describeMethod(object.info.covMethod),
          dasunit::formatObjectId(object.objId),
          isCell ? std::to_string(object.row) : "",
          isCell ? std::to_string(object.column) : "",
          remark};
}

std::string csvField(const std::string& text) {
  if (text.find_first_of("\",\r\n") == std::string::npos) return text;
  std::string field = "\"";
  for (const char c : text) field += c == '"' ? std::string("\"\"") : std::string(1, c);
  return field + '"';
}

std::string asCsv(const std::vector<Line>& lines) {
  std::string text;
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) {
      text += csvField(line[i]);
      text += i + 1 < line.size() ? "," : "\r\n";
    }
  }
  return text;
}

/// Characters of a text in UTF-8.
std::size_t widthOf(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  }));
}

std::string asTable(const std::vector<Line>& lines) {
  std::array<std::size_t, std::tuple_size_v<Line>> widths{};
  for (const Line& line : lines) {
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], widthOf(line[i]));
  }
  std::string text;
  for (const Line& line : lines) {
    std::string row;
    for (std::size_t i = 0; i < line.size(); ++i) {
      row += line[i] + std::string(widths[i] + 2 - widthOf(line[i]), ' ');
    }
    text += oneLine(row.substr(0, row.find_last_not_of(' ') + 1)) + '\n';
  }
  return text;
}

std::string asJson(const std::vector<Line>& lines) {
  auto all = nlohmann::ordered_json::array();
  for (std::size_t number = 1; number < lines.size(); ++number) {
    nlohmann::ordered_json object;
    for (std::size_t i = 0; i < kHeadings.size(); ++i) {
      const std::string& field = lines[number][i];
      const bool isNumber = kHeadings[i] == "row" || kHeadings[i] == "column";
      if (isNumber && !field.empty()) {
        object[kHeadings[i]] = std::stoul(field);
      } else if (!isNumber && (kHeadings[i] != "remark" || !field.empty())) {
        object[kHeadings[i]] = field;
      }
    }
    all.push_back(object);
  }
  return all.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace

std::string list(const Mapping& mapping, ListFormat listFormat) {
  std::vector<Line> lines{kHeadings};
  for (const ServedObject& object : mapping.objects()) lines.push_back(lineOf(mapping, object));
  switch (listFormat) {
    case ListFormat::kCsv:
      return asCsv(lines);
    case ListFormat::kJson:
      return asJson(lines);
    case ListFormat::kTable:
      break;
  }
  return asTable(lines);
}

}  // namespace norva::mapping
