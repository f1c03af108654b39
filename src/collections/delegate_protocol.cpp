#include "zentrel/collections/delegate_protocol.h"

#include <algorithm>

namespace zt::detail {

std::string_view selectorNameFromSignature(std::string_view signature) {
  // g++: "... [with auto Method = &A::b; std::string_view = ...]"; clang: "... [Method = &A::b]".
  constexpr std::string_view marker = "Method = ";
  const auto start = signature.find(marker);
  if (start == std::string_view::npos) return signature;
  std::string_view name = signature.substr(start + marker.size());
  name = name.substr(0, name.find_first_of(";]"));
  while (!name.empty() && (name.front() == '&' || name.front() == '(' || name.front() == ' ')) name.remove_prefix(1);
  while (!name.empty() && (name.back() == ')' || name.back() == ' ')) name.remove_suffix(1);
  return name;
}

}  // namespace zt::detail

ZTProtocol::ZTProtocol(std::string name, std::initializer_list<ZTSelector> requiredSelectors,
                       std::initializer_list<ZTSelector> optionalSelectors)
    : name_(std::move(name)), required_(requiredSelectors), optional_(optionalSelectors) {}

std::optional<ZTMethodDescription> ZTProtocol::methodDescriptionForSelector(ZTSelector selector) const {
  if (selector.isNull()) return std::nullopt;
  if (std::find(optional_.begin(), optional_.end(), selector) != optional_.end())
    return ZTMethodDescription{selector, false};
  if (std::find(required_.begin(), required_.end(), selector) != required_.end())
    return ZTMethodDescription{selector, true};
  return std::nullopt;
}

bool ZTProtocol::containsSelector(ZTSelector selector) const {
  return methodDescriptionForSelector(selector).has_value();
}

bool ZTProtocol::isRequiredSelector(ZTSelector selector) const {
  const auto description = methodDescriptionForSelector(selector);
  return description && description->isRequired;
}

ZTDelegateProtocol::~ZTDelegateProtocol() = default;

bool ZTDelegateProtocol::respondsToSelector(ZTSelector selector) const {
  return std::find(implementedSelectors_.begin(), implementedSelectors_.end(), selector) != implementedSelectors_.end();
}

void ZTDelegateProtocol::declareImplementedSelector(ZTSelector selector) {
  if (std::find(implementedSelectors_.begin(), implementedSelectors_.end(), selector) == implementedSelectors_.end())
    implementedSelectors_.push_back(selector);
}
