// The format engine with formats known only at run time (read from files, translations) and up to
// eight typed arguments chosen by the input: integers of each width and sign, floating point,
// characters, C strings (null included), strings with any bytes, pointers, points, sizes,
// rectangles and ranges. A mismatch must be reported as ZTFormatException and nothing else; no
// argument is read past the end.
#include <memory>
#include <vector>

#include "fuzz_input.h"
#include "zentrel/text/string_format.h"

namespace {

struct Point { double x, y; };
struct Size { double width, height; };
struct Rect { Point origin; Size size; };
struct Range { std::uint64_t location, length; };

// Holds the argument values for as long as the ZTFormatArguments that refer to them.
struct Arguments {
  std::vector<std::unique_ptr<std::string>> strings;
  std::vector<std::shared_ptr<void>> values;
  std::vector<ZTFormatArgument> list;

  template <class T>
  void add(T value) {
    auto held = std::make_shared<T>(value);
    list.emplace_back(*held);
    values.push_back(held);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string format = zt_fuzz::text(input, 256);
  Arguments arguments;
  const int count = input.ConsumeIntegralInRange(0, 8);
  for (int i = 0; i < count; ++i) {
    switch (input.ConsumeIntegralInRange(0, 13)) {
      case 0: arguments.add(input.ConsumeIntegral<int>()); break;
      case 1: arguments.add(input.ConsumeIntegral<unsigned>()); break;
      case 2: arguments.add(input.ConsumeIntegral<long long>()); break;
      case 3: arguments.add(input.ConsumeIntegral<std::uint64_t>()); break;
      case 4: arguments.add(input.ConsumeIntegral<short>()); break;
      case 5: arguments.add(input.ConsumeFloatingPoint<double>()); break;
      case 6: arguments.add(input.ConsumeIntegral<char>()); break;
      case 7: {
        arguments.strings.push_back(std::make_unique<std::string>(zt_fuzz::text(input, 64)));
        arguments.add(arguments.strings.back()->c_str());
        break;
      }
      case 8: arguments.add(static_cast<const char*>(nullptr)); break;
      case 9: {
        arguments.strings.push_back(std::make_unique<std::string>(zt_fuzz::text(input, 64)));
        arguments.list.emplace_back(*arguments.strings.back());
        break;
      }
      case 10: arguments.add(reinterpret_cast<const void*>(input.ConsumeIntegral<std::uintptr_t>())); break;
      case 11: arguments.add(Point{input.ConsumeFloatingPoint<double>(), input.ConsumeFloatingPoint<double>()}); break;
      case 12:
        arguments.add(Rect{{input.ConsumeFloatingPoint<double>(), input.ConsumeFloatingPoint<double>()},
                           {input.ConsumeFloatingPoint<double>(), input.ConsumeFloatingPoint<double>()}});
        break;
      default:
        if (input.ConsumeBool()) {
          arguments.add(Size{input.ConsumeFloatingPoint<double>(), input.ConsumeFloatingPoint<double>()});
        } else {
          arguments.add(Range{input.ConsumeIntegral<std::uint64_t>(), input.ConsumeIntegral<std::uint64_t>()});
        }
        break;
    }
  }
  try {
    (void)zt::copyZentrelStringWithFormatArguments(format, arguments.list);
  } catch (const ZTFormatException&) {
  }
  return 0;
}
