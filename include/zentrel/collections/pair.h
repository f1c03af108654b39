#pragma once
// ZTPair: two values held together, both readable and writable. It has no equality or hashing of
// its own (use std::pair or a struct for that). Threads: none.

#include <ostream>
#include <sstream>
#include <string>
#include <utility>

#include "zentrel/platform/debug_name.h"

template <class First, class Second = First>
class ZTPair {
 public:
  ZTPair() = default;
  ZTPair(First first, Second second) : first_(std::move(first)), second_(std::move(second)) {}
  [[nodiscard]] static ZTPair pairWithFirst(First first, Second second) { return ZTPair(std::move(first), std::move(second)); }

  const First& first() const { return first_; }
  First& first() { return first_; }
  void setFirst(First first) { first_ = std::move(first); }
  const Second& second() const { return second_; }
  Second& second() { return second_; }
  void setSecond(Second second) { second_ = std::move(second); }

  // "<ZTPair<int, std::string> 0x...: first = 1; second = one>" (a value that cannot be streamed is
  // written as "?").
  std::string description() const {
    std::ostringstream out;
    out << "<" << ZTDebugClassNameForObject(this) << " " << static_cast<const void*>(this) << ": first = ";
    write(out, first_);
    out << "; second = ";
    write(out, second_);
    out << ">";
    return out.str();
  }

 private:
  template <class V>
  static void write(std::ostream& out, const V& value) {
    if constexpr (requires { out << value; }) out << value;
    else out << "?";
  }

  First first_{};
  Second second_{};
};
