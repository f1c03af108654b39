#pragma once
// ZTCopying: the interface of objects that can make an independent copy of themselves, for
// polymorphic objects held by pointer (value types are copied by their copy constructor).
// zt::deepCopy uses it: pointer elements whose objects are not ZTCopying are left out of the copy.

#include <memory>

#include "zentrel/platform/export.h"

class ZT_API ZTCopying {
 public:
  virtual ~ZTCopying();
  // A new object equal to this one that shares no mutable state with it.
  virtual std::shared_ptr<ZTCopying> copy() const = 0;

 protected:
  ZTCopying() = default;
  ZTCopying(const ZTCopying&) = default;
  ZTCopying& operator=(const ZTCopying&) = default;
};
