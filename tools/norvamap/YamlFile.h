// A YAML file that somebody wrote: what cannot be read, or is not as it should be, is thrown as
// InputError, whose text begins with the file and, where there is one, the line.
//
// One thread.

#ifndef NORVA_MAPPING_YAML_FILE_H_
#define NORVA_MAPPING_YAML_FILE_H_

#include <yaml-cpp/yaml.h>

#include <string>

namespace norva::mapping {

class YamlFile {
 public:
  explicit YamlFile(const std::string& path);

  /// Null for an empty file.
  const YAML::Node& root() const { return root_; }

  /// "FILE:LINE".
  std::string place(const YAML::Node& node) const { return place(node.Mark()); }
  [[noreturn]] void fail(const YAML::Node& node, const std::string& reason) const {
    fail(node.Mark(), reason);
  }
  /// A map, in which no key stands twice.
  void requireMap(const YAML::Node& node) const;

  /// The node's value.
  template <typename Value>
  Value as(const YAML::Node& node) const {
    try {
      return node.as<Value>();
    } catch (const YAML::Exception& error) {
      fail(node.Mark(), error.msg);
    }
  }
  std::string text(const YAML::Node& node) const { return as<std::string>(node); }

 private:
  std::string place(const YAML::Mark& mark) const;
  [[noreturn]] void fail(const YAML::Mark& mark, const std::string& reason) const;

  const std::string path_;
  YAML::Node root_;
};

}  // namespace norva::mapping

#endif  // NORVA_MAPPING_YAML_FILE_H_
