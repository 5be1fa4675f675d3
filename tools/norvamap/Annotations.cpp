#include "Annotations.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>

#include "AsnType.h"
#include "Text.h"

namespace norva::mapping {

namespace {

using dasunit::InputError;

constexpr std::size_t kMaxIdentifier = 64;

bool isIdentifier(const std::string& text) {
  const auto isAlnum = [](unsigned char c) { return c < 0x80 && std::isalnum(c) != 0; };
  return !text.empty() && text.size() <= kMaxIdentifier && text[0] >= 'a' && text[0] <= 'z' &&
         std::all_of(text.begin(), text.end(), isAlnum);
}

class Reader {
 public:
  Reader(const std::string& path, const Mapping& mapping) : path_(path), mapping_(mapping) {}

  Annotations read() const {
    Annotations annotations;
    const YAML::Node root = YAML::LoadFile(path_);
    if (root.IsNull()) return annotations;
    requireMap(root);
    for (const auto& entry : root) {
      const auto key = entry.first.as<std::string>();
      if (key == "scalars") {
        readScalars(entry.second, annotations);
      } else if (key == "tables") {
        readTables(entry.second, annotations);
      } else {
        fail(entry.first, "unknown key '" + key + "': scalars or tables");
      }
    }
    return annotations;
  }

 private:
  std::string place(const YAML::Node& node) const {
    return path_ + ':' + std::to_string(node.Mark().line + 1);
  }
  [[noreturn]] void fail(const YAML::Node& node, const std::string& reason) const {
    throw InputError(place(node) + ": " + reason);
  }
  void requireMap(const YAML::Node& node) const {
    if (!node.IsMap()) fail(node, "a list of 'key: value' is needed here");
  }

  void readScalars(const YAML::Node& scalars, Annotations& annotations) const {
    requireMap(scalars);
    for (const auto& entry : scalars) {
      const auto key = entry.first.as<std::string>();
      std::uint16_t objId = 0;
      try {
        objId = dasunit::parseObjectId(key);
      } catch (const InputError& error) {
        fail(entry.first, error.what());
      }
      const auto& objects = mapping_.objects();
      const auto served = std::find_if(objects.begin(), objects.end(), [&](const auto& object) {
        return object.table < 0 && object.objId == objId;
      });
      if (served == objects.end()) {
        fail(entry.first, "the mapping serves no scalar of object " + key);
      }
      annotations.scalars[objId] = readAnnotation(entry.second, &*served);
    }
  }

  void readTables(const YAML::Node& tables, Annotations& annotations) const {
    requireMap(tables);
    for (const auto& entry : tables) {
      const auto node = entry.first.as<std::string>();
      const auto& known = mapping_.tables();
      const auto table = std::find_if(known.begin(), known.end(), [&](const Table& candidate) {
        return candidate.served && candidate.node == node;
      });
      if (table == known.end()) fail(entry.first, "the mapping serves no table " + node);
      TableAnnotation& annotation = annotations.tables[node];
      annotation.table = readAnnotation(entry.second, nullptr);
      if (const YAML::Node columns = entry.second["columns"]) {
        readColumns(columns, static_cast<int>(table - known.begin()), annotation);
      }
    }
  }

  void readColumns(const YAML::Node& columns, int table, TableAnnotation& annotation) const {
    requireMap(columns);
    for (const auto& entry : columns) {
      const auto column = entry.first.as<std::uint32_t>();
      const auto& objects = mapping_.objects();
      const auto served = std::find_if(objects.begin(), objects.end(), [&](const auto& object) {
        return object.table == table && object.column == column && !object.isIndex;
      });
      if (served == objects.end()) {
        fail(entry.first, "the mapping serves no column " + std::to_string(column) + " there");
      }
      annotation.columns[column] = readAnnotation(entry.second, &*served);
    }
  }

  /// `object` is null for a table, which has fewer keys.
  Annotation readAnnotation(const YAML::Node& node, const ServedObject* object) const {
    requireMap(node);
    Annotation annotation;
    annotation.place = place(node);
    for (const auto& entry : node) {
      const auto key = entry.first.as<std::string>();
      if (key == "name") {
        annotation.name = entry.second.as<std::string>();
        if (!isIdentifier(annotation.name)) {
          fail(entry.second,
               "name '" + annotation.name + "': a small letter, then up to 63 letters and digits");
        }
      } else if (key == "description") {
        annotation.description = entry.second.as<std::string>();
      } else if (key == "units" && object != nullptr) {
        annotation.units = entry.second.as<std::string>();
      } else if (key == "values" && object != nullptr) {
        readValues(entry.second, *object, annotation);
      } else if (key != "columns" || object != nullptr) {
        fail(entry.first, "unknown key '" + key + "'");
      }
    }
    return annotation;
  }

  void readValues(const YAML::Node& values, const ServedObject& object,
                  Annotation& annotation) const {
    requireMap(values);
    if (object.info.asnType != kAsnInteger) {
      fail(values, "values are for objects of type INTEGER");
    }
    for (const auto& entry : values) {
      const auto label = entry.second.as<std::string>();
      if (!isIdentifier(label)) fail(entry.second, "value '" + label + "' is no such name");
      annotation.values[entry.first.as<std::int32_t>()] = label;
    }
  }

  const std::string& path_;
  const Mapping& mapping_;
};

}  // namespace

Annotations readAnnotations(const std::string& path, const Mapping& mapping) {
  try {
    return Reader(path, mapping).read();
  } catch (const YAML::BadFile&) {
    throw InputError(path + ": cannot be read");
  } catch (const YAML::Exception& error) {
    throw InputError(path + ':' + std::to_string(error.mark.line + 1) + ": " + error.msg);
  }
}

}  // namespace norva::mapping
