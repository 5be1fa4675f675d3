#include "Annotations.h"

#include <algorithm>
#include <cctype>

#include "AsnType.h"
#include "Text.h"
#include "YamlFile.h"

namespace norva::mapping {

namespace {

using dasunit::InputError;

constexpr std::size_t kMaxIdentifier = 64;
constexpr int kMaxScale = 9;
constexpr const char* kSeverities[] = {"critical", "major", "minor", "warning"};

bool isIdentifier(const std::string& text) {
  const auto isAlnum = [](unsigned char c) { return c < 0x80 && std::isalnum(c) != 0; };
  return !text.empty() && text.size() <= kMaxIdentifier && text[0] >= 'a' && text[0] <= 'z' &&
         std::all_of(text.begin(), text.end(), isAlnum);
}

class Reader {
 public:
  Reader(const std::string& path, const Mapping& mapping) : file_(path), mapping_(mapping) {}

  Annotations read() const {
    Annotations annotations;
    if (file_.root().IsNull()) return annotations;
    file_.requireMap(file_.root());
    for (const auto& entry : file_.root()) {
      const auto key = file_.text(entry.first);
      if (key == "scalars") {
        readScalars(entry.second, annotations);
      } else if (key == "tables") {
        readTables(entry.second, annotations);
      } else {
        file_.fail(entry.first, "unknown key '" + key + "': scalars or tables");
      }
    }
    return annotations;
  }

 private:
  void readScalars(const YAML::Node& scalars, Annotations& annotations) const {
    file_.requireMap(scalars);
    for (const auto& entry : scalars) {
      const auto key = file_.text(entry.first);
      std::uint16_t objId = 0;
      try {
        objId = dasunit::parseObjectId(key);
      } catch (const InputError& error) {
        file_.fail(entry.first, error.what());
      }
      const auto& objects = mapping_.objects();
      const auto served = std::find_if(objects.begin(), objects.end(), [&](const auto& object) {
        return object.table < 0 && object.objId == objId;
      });
      if (served == objects.end()) {
        file_.fail(entry.first, "the mapping serves no scalar of object " + key);
      }
      const bool isNew =
          annotations.scalars.try_emplace(objId, readAnnotation(entry.second, &*served)).second;
      if (!isNew) file_.fail(entry.first, "object " + key + " stands here twice");
    }
  }

  void readTables(const YAML::Node& tables, Annotations& annotations) const {
    file_.requireMap(tables);
    for (const auto& entry : tables) {
      const auto node = file_.text(entry.first);
      const auto& known = mapping_.tables();
      const auto table = std::find_if(known.begin(), known.end(), [&](const Table& candidate) {
        return candidate.served && candidate.node == node;
      });
      if (table == known.end()) file_.fail(entry.first, "the mapping serves no table " + node);
      TableAnnotation& annotation = annotations.tables[node];
      annotation.table = readAnnotation(entry.second, nullptr);
      if (const YAML::Node columns = entry.second["columns"]) {
        readColumns(columns, static_cast<int>(table - known.begin()), annotation);
      }
    }
  }

  void readColumns(const YAML::Node& columns, int table, TableAnnotation& annotation) const {
    file_.requireMap(columns);
    for (const auto& entry : columns) {
      const auto column = file_.as<std::uint32_t>(entry.first);
      const auto& objects = mapping_.objects();
      const auto served = std::find_if(objects.begin(), objects.end(), [&](const auto& object) {
        return object.table == table && object.column == column && !object.isIndex;
      });
      if (served == objects.end()) {
        file_.fail(entry.first,
                   "the mapping serves no column " + std::to_string(column) + " there");
      }
      const bool isNew =
          annotation.columns.try_emplace(column, readAnnotation(entry.second, &*served)).second;
      if (!isNew)
        file_.fail(entry.first, "column " + std::to_string(column) + " stands here twice");
    }
  }

  /// `object` is null for a table, which has fewer keys.
  Annotation readAnnotation(const YAML::Node& node, const ServedObject* object) const {
    file_.requireMap(node);
    Annotation annotation;
    annotation.place = file_.place(node);
    for (const auto& entry : node) {
      const std::string key = file_.text(entry.first);
      if (key == "name") {
        annotation.name = readName(entry.second);
      } else if (key == "description") {
        annotation.description = file_.text(entry.second);
      } else if (object == nullptr && key == "columns") {
        continue;
      } else if (object == nullptr || !readValueKey(key, entry.second, *object, annotation)) {
        file_.fail(entry.first, "unknown key '" + key + "'");
      }
    }
    return annotation;
  }

  std::string readName(const YAML::Node& node) const {
    std::string name = file_.text(node);
    if (isIdentifier(name)) return name;
    file_.fail(node, "name '" + name + "': a small letter, then up to 63 letters and digits");
  }

  /// The keys about an object's value; false for any other one.
  bool readValueKey(const std::string& key, const YAML::Node& node, const ServedObject& object,
                    Annotation& annotation) const {
    if (key == "unit" || key == "units") {  // units: in older files
      annotation.unit = file_.text(node);
    } else if (key == "scale") {
      annotation.scale = file_.as<int>(node);
      if (!isScalable(object.type())) {
        file_.fail(node, "a scale is for objects of type INTEGER or Gauge32");
      }
      if (annotation.scale < -kMaxScale || annotation.scale > kMaxScale) {
        file_.fail(node, format("scale %d: -%d to %d", annotation.scale, kMaxScale, kMaxScale));
      }
    } else if (key == "severity") {
      annotation.severity = file_.text(node);
      const auto& known = kSeverities;
      if (object.table >= 0 ||
          std::find(std::begin(known), std::end(known), annotation.severity) == std::end(known)) {
        file_.fail(node, "severity '" + annotation.severity +
                             "': critical, major, minor or warning, of a scalar");
      }
    } else if (key == "values") {
      readValues(node, object, annotation);
    } else {
      return false;
    }
    return true;
  }

  void readValues(const YAML::Node& values, const ServedObject& object,
                  Annotation& annotation) const {
    file_.requireMap(values);
    if (object.type() != kAsnInteger) {
      file_.fail(values, "values are for objects of type INTEGER");
    }
    for (const auto& entry : values) {
      const auto label = file_.text(entry.second);
      if (!isIdentifier(label)) file_.fail(entry.second, "value '" + label + "' is no such name");
      const auto number = file_.as<std::int32_t>(entry.first);
      const bool isTaken = std::any_of(annotation.values.begin(), annotation.values.end(),
                                       [&](const auto& value) { return value.second == label; });
      if (isTaken || !annotation.values.emplace(number, label).second) {
        file_.fail(entry.second,
                   "value " + std::to_string(number) + " '" + label + "' stands here twice");
      }
    }
  }

  const YamlFile file_;
  const Mapping& mapping_;
};

}  // namespace

Annotations readAnnotations(const std::string& path, const Mapping& mapping) {
  return Reader(path, mapping).read();
}

}  // namespace norva::mapping
