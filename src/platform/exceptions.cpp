#include "zentrel/platform/exceptions.h"

std::string ZTAbstractMethodReason(std::string_view methodName, std::string_view className) {
  std::string reason = "You must override ";
  reason.append(methodName).append(" in ").append(className).append(" class.");
  return reason;
}

std::string ZTRefusedInitializerReason(std::string_view designatedName, std::string_view calledName,
                                       std::string_view className) {
  std::string reason = "You should call ";
  reason.append(designatedName).append(" instead of ").append(calledName).append(" for ");
  reason.append(className).append(" class.");
  return reason;
}
