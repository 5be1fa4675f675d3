#include "YamlFile.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

#include "Text.h"

namespace norva::mapping {

using dasunit::InputError;

namespace {

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  std::ostringstream content;
  // A directory can be opened, but not read.
  if (!file || file.peek() == std::ifstream::traits_type::eof()) {
    if (!file.is_open() || file.bad()) throw InputError(path + ": " + std::strerror(errno));
    return "";
  }
  content << file.rdbuf();
  return content.str();
}

}  // namespace

YamlFile::YamlFile(const std::string& path) : path_(path) {
  try {
    root_ = YAML::Load(contentOf(path));
  } catch (const YAML::Exception& error) {
    fail(error.mark, error.msg);
  }
}

void YamlFile::requireMap(const YAML::Node& node) const {
  if (!node.IsMap()) fail(node, "a list of 'key: value' is needed here");
  std::set<std::string> keys;
  for (const auto& entry : node) {
    if (!keys.insert(text(entry.first)).second) {
      fail(entry.first, "'" + text(entry.first) + "' stands here twice");
    }
  }
}

std::string YamlFile::place(const YAML::Mark& mark) const {
  return path_ + ':' + std::to_string(mark.line + 1);
}

void YamlFile::fail(const YAML::Mark& mark, const std::string& reason) const {
  throw InputError(place(mark) + ": " + reason);
}

}  // namespace norva::mapping
