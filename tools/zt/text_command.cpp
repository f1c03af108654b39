// `zt text`: the format engine, truncation to a pixel width with a real font, digests, AES and gzip,
// on a text the user may give.

#include <chrono>
#include <iomanip>
#include <iostream>
#include <span>
#include <string>

#include "commands.h"
#include "zentrel/geometry/point.h"
#include "zentrel/text/aes.h"
#include "zentrel/text/digest.h"
#include "zentrel/typesetting/font.h"
#include "zentrel/text/gzip.h"
#include "zentrel/typesetting/string_drawing.h"
#include "zentrel/text/string_format.h"
#include "zentrel/text/version_compare.h"

namespace ztool {
namespace {
std::span<const std::uint8_t> bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}
}  // namespace

int runTextTour(const std::string& text) {
  std::cout << "Text and data\n\n";
  std::cout << "1. The format engine: "
            << zt::copyZentrelStringWithFormat("%point, %d of %size pages, %s", ZTPoint{12.5, 40}, 75, ZTSize{210, 297}, std::string("ready"))
            << "\n";
  try {
    // A literal format with a wrong argument does not compile; one given at run time is refused then.
    (void)zt::copyZentrelStringWithFormat(zt::runtimeFormat("%d items"), std::string("five"));
  } catch (const std::exception& e) {
    std::cout << "   A wrong argument is refused, not guessed: " << e.what() << "\n";
  }

  ZTError error;
  auto font = ZTFont::systemFontOfSize(12, &error);
  if (!font) {
    std::cout << "2. No font available: " << error.localizedDescription() << "\n";
  } else {
    std::cout << "2. Cut to 150 points with " << font->familyName() << " 12:\n";
    const auto start = std::chrono::steady_clock::now();
    const auto tail = zt::stringByBreakToWidth(text, 150, ZTLineBreakMode::ByTruncatingTail, font);
    const auto middle = zt::stringByBreakToWidth(text, 150, ZTLineBreakMode::ByTruncatingMiddle, font);
    const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    std::cout << "   tail:   \"" << tail << "\"\n   middle: \"" << middle << "\"  (both in " << std::fixed << std::setprecision(2) << ms << " ms)\n" << std::defaultfloat;
    // Characters the font lacks (the emoji) are measured with the font fontconfig has for them.
    const ZTSize line = zt::ztSizeWithFont(text, font);
    const ZTSize wrapped = zt::ztSizeWithFont(text, font, ZTSize{150, 0});
    auto points = [](double value) { return static_cast<long long>(value); };  // sizes are whole points
    std::cout << "   Whole, it is " << points(line.width) << " x " << points(line.height) << " points on one line, or "
              << points(wrapped.width) << " x " << points(wrapped.height) << " wrapped within 150 points.\n";
  }

  std::cout << "3. Digests of the text:\n   MD5     " << zt::md5(text) << "\n   SHA-256 " << zt::sha256(text) << "\n";

  const auto sealed = zt::ztAES256EncryptWithKey(bytesOf(text), "correct horse battery staple");
  const auto opened = sealed ? zt::ztAES256DecryptWithKey(*sealed, "correct horse battery staple") : std::nullopt;
  const bool roundTrip = opened && std::string(opened->begin(), opened->end()) == text;
  std::cout << "4. AES-256 encrypted the " << text.size() << " bytes into " << (sealed ? sealed->size() : 0)
            << " bytes and decrypted them back " << (roundTrip ? "unchanged" : "WRONG") << ".\n";

  std::string repeated;
  for (int i = 0; i < 100; ++i) repeated += text;
  const auto packed = zt::gzipDeflate(bytesOf(repeated));
  std::cout << "5. gzip packed the text repeated 100 times (" << repeated.size() << " bytes) into "
            << (packed ? packed->size() : 0) << " bytes.\n";

  std::cout << "6. Versions compare by number: 1.10 is "
            << (zt::compareVersion("1.10", "1.9") == std::strong_ordering::greater ? "newer" : "not newer")
            << " than 1.9.\n";
  return roundTrip && packed ? 0 : 1;
}

int runTextTourWithDefaults() {
  return runTextTour("ZentrelLib measures, cuts, formats and seals text the way people read it — even 🎉 emoji.");
}

void addTextCommand(CLI::App& app) {
  auto* command = app.add_subcommand("text", "Format engine, truncation to a width, digests, AES and gzip");
  command->footer("Example: zt text \"Grüße aus Zürich, wo die Sonne scheint\"");
  static std::string text;
  command->add_option("text", text, "The text to work on (a sample sentence if left out)");
  command->callback([] {
    const int status = text.empty() ? runTextTourWithDefaults() : runTextTour(text);
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace ztool
