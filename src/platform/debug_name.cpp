#include "zentrel/platform/debug_name.h"

#include <cxxabi.h>

#include <cstdlib>

std::string ZTDemangledTypeName(const std::type_info& type) {
  int status = 0;
  char* demangled = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
  std::string name = (status == 0 && demangled) ? demangled : type.name();
  std::free(demangled);
  return name;
}
