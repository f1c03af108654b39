#pragma once
// ZTWeakContainer: a box holding one object weakly — for putting a non-owning reference where an
// owning value is expected (a container element, a captured value). object() is the object, or
// null once it has died. Threads: a container may be read from several threads at once.

#include <memory>

template <class T>
class ZTWeakContainer {
 public:
  ZTWeakContainer() = default;
  explicit ZTWeakContainer(const std::shared_ptr<T>& object) : object_(object) {}
  [[nodiscard]] static std::shared_ptr<ZTWeakContainer> create(const std::shared_ptr<T>& object) {
    return std::make_shared<ZTWeakContainer>(object);
  }

  std::shared_ptr<T> object() const { return object_.lock(); }

 private:
  std::weak_ptr<T> object_;
};
