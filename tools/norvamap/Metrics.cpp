#include "Metrics.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>
#include <string_view>

#include "AsnType.h"
#include "SnmpObjConvertStrategy.h"
#include "View.h"

namespace norva::mapping {

namespace {

struct Unit {
  std::string name;  ///< of names.yaml, or the base unit's for people
  std::string suffix;
  int exponent;  ///< one of it is so many base units, as a power of ten
  bool takesPrefix = false;
};

/// Those that Prometheus has names for. Any other one keeps its own.
const Unit kUnits[] = {
    {"degrees Celsius", "celsius", 0}, {"dB", "decibels", 0}, {"dBm", "decibel_milliwatts", 0},
    {"per cent", "ratio", -2},         {"%", "ratio", -2},
};
/// These take prefixes.
const Unit kPrefixedUnits[] = {
    {"Hz", "hertz", 0},  {"V", "volts", 0},  {"A", "amperes", 0}, {"W", "watts", 0},
    {"s", "seconds", 0}, {"m", "meters", 0}, {"B", "bytes", 0},
};
const std::map<std::string, int> kPrefixes = {{"", 0},  {"n", -9}, {"u", -6}, {"m", -3},
                                              {"k", 3}, {"M", 6},  {"G", 9}};

/// What all metrics' names begin with.
constexpr std::string_view kPrefix = "norva_";

/// Small letters and digits, '_' for all that is between them.
std::string snake(const std::string& text) {
  std::string name;
  for (const char character : text) {
    const auto c = static_cast<unsigned char>(character);
    const bool isWord = c >= 0x80 || std::isalnum(c) != 0 || c == '_';
    if (isWord) {
      name += static_cast<char>(std::tolower(c));
    } else if (!name.empty() && name.back() != '_') {
      name += '_';
    }
  }
  if (!name.empty() && name.back() == '_') name.pop_back();
  return name;
}

/// The base unit with what leads to it.
Unit baseUnit(const std::string& unit) {
  for (const Unit& known : kUnits) {
    if (unit == known.name)
      return {known.exponent == 0 ? unit : known.suffix, known.suffix, known.exponent};
  }
  for (const auto& [prefix, exponent] : kPrefixes) {
    for (const Unit& known : kPrefixedUnits) {
      if (unit == prefix + known.name) return {known.name, known.suffix, exponent, true};
    }
  }
  return {unit, snake(unit), 0};
}

/// downlinkOutputPower becomes norva_downlink_output_power, managementVLAN norva_management_vlan.
std::string stemOf(const std::string& objectName) {
  std::string name(kPrefix);
  bool wasCapital = true;
  for (const char c : objectName) {
    const bool isCapital = std::isupper(static_cast<unsigned char>(c)) != 0;
    if (isCapital && !wasCapital) name += '_';
    wasCapital = isCapital;
    name += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return name;
}

/// The name without an ending that means something to Prometheus.
std::string familyOf(const std::string& name) {
  for (const std::string_view ending :
       {"_total", "_count", "_sum", "_bucket", "_info", "_created"}) {
    if (name.ends_with(ending)) return name.substr(0, name.size() - ending.size());
  }
  return name;
}

std::string nameOf(const Metric& metric, std::string stem) {
  const auto append = [&stem](const std::string& ending) {
    if (!ending.empty() && !stem.ends_with('_' + ending)) stem += '_' + ending;
  };
  append(metric.unit);
  if (metric.kind == MetricKind::kText) {
    append("info");
  } else if (metric.kind == MetricKind::kCounter) {
    append("total");
  } else if (familyOf(stem) != stem) {
    append("value");
  }
  return stem;
}

std::string helpOf(const NamedObject& object, const std::string& unit) {
  std::string help = object.title.empty() ? object.name : object.title;
  if (!unit.empty()) help += " in " + unit;
  for (const auto& [number, label] : object.annotation.values) {
    help += (help.back() == ')' || help.find(": ") != std::string::npos ? ", " : ": ") +
            std::to_string(number) + ' ' + label;
  }
  for (char& c : help) {
    if (c < ' ' || c > '~') c = '?';
  }
  return help;
}

/// The metric without its name; none for an object that makes no metric.
std::optional<Metric> unnamed(const NamedObject& object) {
  const std::uint8_t type = object.first->type();
  const auto method = static_cast<ConversionMethod>(methodOf(object.first->info.covMethod));
  if (method == ConversionMethod::kTimeText || type == kAsnOpaque) return std::nullopt;
  Metric metric;
  metric.object = &object;
  if (type == kAsnCounter32 || type == kAsnCounter64) {
    metric.kind = MetricKind::kCounter;
  } else if (type == kAsnOctetString && method == ConversionMethod::kFixedText) {
    metric.kind = MetricKind::kDecimalText;
  } else if (type == kAsnOctetString || type == kAsnIpAddress) {
    metric.kind = MetricKind::kText;
  }
  const Annotation& annotation = object.annotation;
  Unit unit = baseUnit(annotation.unit);
  // Other numbers cannot be scaled by the exporter.
  const bool canScale = metric.kind == MetricKind::kDecimalText || isScalable(type);
  if (!canScale && unit.exponent != 0) unit = {annotation.unit, snake(annotation.unit), 0};
  metric.unit = unit.suffix;
  metric.baseUnit = unit.name;
  metric.takesPrefix = unit.takesPrefix;
  metric.exponent = annotation.scale + unit.exponent;
  metric.help = helpOf(object, unit.name);
  return metric;
}

std::string idOf(const NamedObject& object) {
  const ServedObject& first = *object.first;
  return first.table < 0 ? format("_%04x", first.objId)
                         : format("_t%dc%u", first.table + 1, first.column);
}

constexpr std::string_view kAlarmEnding = "_alarm";

/// As the rules and the reader of notifications name an alarm.
std::string alarmOf(const std::string& name) {
  return name.ends_with(kAlarmEnding) ? name.substr(0, name.size() - kAlarmEnding.size()) : name;
}

}  // namespace

Share shareOf(const Metric& metric) {
  if (metric.kind == MetricKind::kText) return Share::kTexts;
  return metric.object->first->writable ? Share::kConfigured : Share::kMeasured;
}

std::string severityOf(const Metric& metric) {
  if (metric.kind == MetricKind::kText) return "";
  const NamedObject& object = *metric.object;
  const Annotation& annotation = object.annotation;
  if (!annotation.severity.empty() || shareOf(metric) != Share::kMeasured) {
    return annotation.severity;
  }
  // Where others have the same name, the metric's has an object id at its end.
  const std::string name = annotation.name.empty() ? identifierOf(object.title) : annotation.name;
  return nameOf(metric, stemOf(name)).ends_with(kAlarmEnding) ? "major" : "";
}

std::vector<Metric> metricsOf(const NamedMapping& named) {
  std::vector<Metric> metrics;
  const auto add = [&metrics](const std::vector<NamedObject>& objects) {
    for (const NamedObject& object : objects) {
      if (auto metric = unnamed(object)) metrics.push_back(std::move(*metric));
    }
  };
  add(named.scalars);
  for (const NamedTable& table : named.tables) add(table.columns);

  std::map<std::string, int> families;
  for (Metric& metric : metrics) {
    metric.name = nameOf(metric, stemOf(metric.object->name));
    ++families[familyOf(metric.name)];
  }
  for (Metric& metric : metrics) {
    if (families[familyOf(metric.name)] == 1) continue;
    metric.name = nameOf(metric, stemOf(metric.object->name) + idOf(*metric.object));
  }
  return metrics;
}

std::string severityRules(const NamedMapping& named) {
  std::map<std::string, std::string> severities;
  for (const NamedObject& scalar : named.scalars) {
    if (scalar.annotation.severity.empty()) continue;
    // Notifications have the database's name; the metric has another where there is an annotation.
    for (const std::string& name :
         {snake(scalar.title), stemOf(scalar.name).substr(kPrefix.size())}) {
      severities.try_emplace(alarmOf(name), scalar.annotation.severity);
    }
  }
  std::string rules =
      "# Generated by norvamap: how bad each alarm is. One that is not named here is major.\n"
      "groups:\n  - name: norva_severities\n    rules:\n";
  for (const auto& [alarm, severity] : severities) {
    rules += "      - {record: norva:alarm_severity, expr: vector(1), labels: {alarm: " + alarm +
             ", severity: " + severity + "}}\n";
  }
  return severities.empty() ? rules.substr(0, rules.rfind("    rules")) : rules;
}

}  // namespace norva::mapping
