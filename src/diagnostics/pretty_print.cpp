#include "zentrel/diagnostics/pretty_print.h"

#include <cstdio>
#include <exception>

#include "zentrel/platform/debug_name.h"

namespace {

// Nesting deeper than this is printed as its one-line description: a ZTValue is a tree, so this
// only bounds the recursion for absurdly deep input.
constexpr std::size_t kMaximumDepth = 256;

std::string scalarText(const ZTValue& value) {
  if (const auto* text = value.getIf<std::string>()) return *text;
  return value.description();
}

std::string headerText(const ZTValue& value) {
  if (value.isNull()) return "(null)";
  return scalarText(value);
}

std::string printAtLevel(const ZTValue& value, std::size_t level, bool* isCollection, std::size_t depth) {
  const std::string indent(level, ' ');
  if (depth > kMaximumDepth) {
    if (isCollection) *isCollection = false;
    return value.description();
  }
  if (const auto* elements = value.getIf<ZTValueArray>()) {
    std::string out = indent + "(\n";
    std::size_t remembered = out.size();
    for (std::size_t i = 0; i < elements->size(); ++i) {
      bool elementIsCollection = false;
      const std::string text = printAtLevel((*elements)[i], level + 3, &elementIsCollection, depth + 1);
      if (elementIsCollection) {
        out += text;
        remembered = out.size() + 1;
      } else {
        out += indent + "   " + text;
      }
      if (i + 1 < elements->size()) out += ",";
      out += "\n";
    }
    if (remembered == out.size() && remembered > level + 6) {
      // The last element's closing line ("\n", its indentation and its brace) makes way for "})".
      out.erase(out.size() - 1 - (level + 5), level + 5);
      out += indent + "})";
    } else {
      out += indent + ")";
    }
    if (isCollection) *isCollection = true;
    return out;
  }
  if (const auto* entries = value.getIf<ZTValueDictionary>()) {
    std::string out = indent + "{ " + headerText(value["class"]) + ", " + headerText(value["self"]) + "\n";
    for (const auto& [key, element] : *entries) {
      if (key == "class" || key == "self") continue;
      bool elementIsCollection = false;
      const std::string text = printAtLevel(element, level + 3, &elementIsCollection, depth + 1);
      if (elementIsCollection) out += "   " + indent + key + " =\n" + text + "\n";
      else out += "   " + indent + key + " = " + text + "\n";
    }
    out += indent + "}";
    if (isCollection) *isCollection = true;
    return out;
  }
  if (isCollection) *isCollection = false;
  return scalarText(value);
}

ZTValue dictionaryOf(const ZTDictionaryRepresentable& object) {
  ZTValue dictionary = object._dictionaryFromSelf();
  if (!dictionary.isDictionary()) dictionary = ZTValue::dictionary();
  dictionary["class"] = ZTDemangledTypeName(typeid(object));
  char address[32];
  std::snprintf(address, sizeof address, "%p", static_cast<const void*>(&object));
  dictionary["self"] = std::string(address);
  return dictionary;
}

std::string warning(const std::exception& e) { return std::string("\n\n\u26A0\uFE0F ") + e.what() + "\n"; }

}  // namespace

namespace zt {

std::string prettyPrintAtLevel(const ZTValue& value, std::size_t level, bool* isCollection) {
  return printAtLevel(value, level, isCollection, 0);
}

std::string prettyPrintAtLevel(const ZTDictionaryRepresentable& object, std::size_t level, bool* isCollection) {
  return printAtLevel(dictionaryOf(object), level, isCollection, 0);
}

std::string prettyPrint(const ZTValue& value) {
  try {
    return prettyPrintAtLevel(value, 0, nullptr);
  } catch (const std::exception& e) {
    return warning(e);
  }
}

std::string prettyPrint(const ZTDictionaryRepresentable& object) {
  try {
    return prettyPrintAtLevel(object, 0, nullptr);
  } catch (const std::exception& e) {
    return warning(e);
  }
}

}  // namespace zt
