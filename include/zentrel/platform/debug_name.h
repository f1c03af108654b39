#pragma once
// Readable class names for log lines and generated names.

#include <memory>
#include <string>
#include <typeinfo>

#include "zentrel/platform/export.h"

// The demangled name of a type, e.g. "ZTThreadWithRunLoop" or "zt::Widget".
ZT_API std::string ZTDemangledTypeName(const std::type_info& type);

// The dynamic class name of an object, or "nil" when there is none.
template <class T>
std::string ZTDebugClassNameForObject(const T* object) {
  if (!object) return "nil";
  if constexpr (std::is_polymorphic_v<T>) return ZTDemangledTypeName(typeid(*object));
  else return ZTDemangledTypeName(typeid(T));
}
template <class T>
std::string ZTDebugClassNameForObject(const std::shared_ptr<T>& object) {
  return ZTDebugClassNameForObject(object.get());
}
