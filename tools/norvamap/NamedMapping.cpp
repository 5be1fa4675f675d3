#include "NamedMapping.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>

#include "Format.h"
#include "Text.h"
#include "View.h"

namespace norva::mapping {

namespace {

constexpr std::size_t kMaxName = 64;
/// Room for what a table's name is followed by.
constexpr std::size_t kMaxTableName = 56;

using Words = std::vector<std::string>;

Words wordsOf(const std::string& text) {
  std::istringstream in(text);
  Words words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

std::string joined(const Words& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string folded(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return name;
}

/// The words that the names of a column's cells have at the same place; the first name when there
/// are none.
std::string titleOf(const std::vector<const ServedObject*>& cells) {
  const std::string& first = cells.front()->info.name;
  Words words = wordsOf(first);
  for (const ServedObject* cell : cells) {
    const Words other = wordsOf(cell->info.name);
    for (std::size_t i = 0; i < words.size(); ++i) {
      if (i >= other.size() || words[i] != other[i]) words[i].clear();
    }
  }
  words.erase(std::remove(words.begin(), words.end(), ""), words.end());
  return words.empty() ? first : joined(words);
}

/// The words that all columns' titles begin with.
std::string titleOf(const std::vector<NamedObject>& columns) {
  Words words = columns.empty() ? Words() : wordsOf(columns.front().title);
  for (const NamedObject& column : columns) {
    const Words other = wordsOf(column.title);
    const auto differ = std::mismatch(words.begin(), words.end(), other.begin(), other.end());
    words.erase(differ.first, words.end());
  }
  return joined(words);
}

/// A name that is asked for, and what it gets when somebody else asks for the same one.
struct Wish {
  std::string* name;
  std::string suffix;
  std::size_t limit;
  const Annotation* annotation;
};

/// An annotated name is kept, or refused when it is taken. Of the others every one that is asked
/// for twice gets its suffix, whoever asks: so a name does not depend on the order of the rows.
void makeUnique(std::vector<Wish>& wishes, const std::vector<std::string>& reserved) {
  std::set<std::string> taken;
  for (const std::string& name : reserved) taken.insert(folded(name));
  std::map<std::string, int> count;
  for (Wish& wish : wishes) {
    if (wish.annotation->name.empty()) {
      wish.name->resize(std::min(wish.name->size(), wish.limit));
      ++count[folded(*wish.name)];
    } else if (!taken.insert(folded(*wish.name)).second) {
      throw dasunit::InputError(wish.annotation->place + ": name '" + *wish.name +
                                "' is taken already");
    }
  }
  for (Wish& wish : wishes) {
    if (!wish.annotation->name.empty()) continue;
    if (count[folded(*wish.name)] == 1 && taken.insert(folded(*wish.name)).second) continue;
    const std::string base = wish.name->substr(0, wish.limit - wish.suffix.size());
    *wish.name = base + wish.suffix;
    for (int number = 2; !taken.insert(folded(*wish.name)).second; ++number) {
      const std::string more = wish.suffix + 'n' + std::to_string(number);
      *wish.name = base.substr(0, wish.limit - more.size()) + more;
    }
  }
}

void nameObject(NamedObject& object, const Annotation* annotation) {
  if (annotation != nullptr) object.annotation = *annotation;
  object.name = object.annotation.name;
  if (object.name.empty()) object.name = identifierOf(object.title);
  if (object.name.empty()) object.name = "object";
}

/// False for what managers' tools cannot be told of.
bool hasValues(const ObjInfo& info) {
  return typeName(info.asnType) != nullptr && canBeAnswered(info.asnType, info.covMethod);
}

template <typename Map, typename Key>
const typename Map::mapped_type* find(const Map& map, const Key& key) {
  const auto found = map.find(key);
  return found == map.end() ? nullptr : &found->second;
}

void addTables(NamedMapping& named, const Mapping& mapping, const Annotations& annotations) {
  std::map<std::pair<int, std::uint32_t>, std::vector<const ServedObject*>> columns;
  for (const ServedObject& object : mapping.objects()) {
    if (object.table < 0 || object.isIndex || object.doubt == Doubt::kInside) continue;
    if (!hasValues(object.info)) continue;
    columns[{object.table, object.column}].push_back(&object);
  }
  for (std::size_t position = 0; position < mapping.tables().size(); ++position) {
    NamedTable table;
    table.table = &mapping.tables()[position];
    if (!table.table->served) continue;
    const TableAnnotation* annotation = find(annotations.tables, table.table->node);
    const int number = static_cast<int>(position);
    const auto end = columns.lower_bound({number + 1, 0});
    for (auto it = columns.lower_bound({number, 0}); it != end; ++it) {
      NamedObject column;
      column.instances = it->second;
      column.first = column.instances.front();
      column.title = titleOf(column.instances);
      column.writable = std::any_of(column.instances.begin(), column.instances.end(),
                                    [](const ServedObject* cell) { return cell->writable; });
      nameObject(column,
                 annotation == nullptr ? nullptr : find(annotation->columns, it->first.second));
      table.columns.push_back(std::move(column));
    }
    if (table.columns.empty()) continue;
    if (annotation != nullptr) table.annotation = annotation->table;
    table.name = table.annotation.name;
    if (table.name.empty()) table.name = identifierOf(titleOf(table.columns));
    if (table.name.empty()) table.name = "units";
    named.tables.push_back(std::move(table));
  }
}

}  // namespace

Oid NamedObject::node() const {
  Oid oid = first->oid;
  oid.resize(oid.size() - (first->table >= 0 ? 2 : 1));  // row and second index, or the instance
  return oid;
}

std::string identifierOf(const std::string& text) {
  const auto isAlnum = [](unsigned char c) { return c < 0x80 && std::isalnum(c) != 0; };
  std::string name;
  bool isFirstWord = true;
  bool isLeading = true;  // capitals at the start become small: PA Temperature, paTemperature
  bool isStart = true;
  for (const char character : text) {
    const auto c = static_cast<unsigned char>(character);
    if (!isAlnum(c)) {
      isStart = true;
      continue;
    }
    if (name.empty() && std::isdigit(c) != 0) name = "n";
    if (isStart && !name.empty()) isFirstWord = false;
    isLeading = isLeading && isFirstWord && std::isupper(c) != 0;
    const bool isSmall = isLeading || name.empty();
    const int letter = isSmall ? std::tolower(c) : isStart ? std::toupper(c) : c;
    name += static_cast<char>(letter);
    isStart = false;
  }
  return name;
}

NamedMapping NamedMapping::make(const Mapping& mapping, const Annotations& annotations,
                                const std::vector<std::string>& reserved) {
  NamedMapping named;
  for (const ServedObject& object : mapping.objects()) {
    if (object.table >= 0 || object.doubt == Doubt::kInside) continue;
    if (!hasValues(object.info)) continue;
    NamedObject scalar;
    scalar.title = object.info.name;
    scalar.first = &object;
    scalar.instances = {&object};
    scalar.writable = object.writable;
    nameObject(scalar, find(annotations.scalars, object.objId));
    named.scalars.push_back(std::move(scalar));
  }
  addTables(named, mapping, annotations);

  // Tables first: the names of their parts begin with theirs.
  std::vector<Wish> tables;
  for (NamedTable& table : named.tables) {
    tables.push_back({&table.name, format("T%td", table.table - mapping.tables().data() + 1),
                      kMaxTableName, &table.annotation});
  }
  makeUnique(tables, {});
  std::vector<std::string> fixed = reserved;
  for (const NamedTable& table : named.tables) {
    for (const char* part : {"Table", "Entry", "Row", "Sub", "Group"}) {
      fixed.push_back(table.name + part);
    }
  }
  std::vector<Wish> objects;
  for (NamedObject& scalar : named.scalars) {
    objects.push_back(
        {&scalar.name, format("%04X", scalar.first->objId), kMaxName, &scalar.annotation});
  }
  for (NamedTable& table : named.tables) {
    for (NamedObject& column : table.columns) {
      objects.push_back({&column.name,
                         format("T%dC%u", column.first->table + 1, column.first->column), kMaxName,
                         &column.annotation});
    }
  }
  makeUnique(objects, fixed);
  return named;
}

}  // namespace norva::mapping
