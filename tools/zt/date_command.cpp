// `zt date parse TEXT` reads a date as HTTP headers, feeds and web APIs write them and shows the
// instant in ISO 8601 and RFC 1123 with the pattern that read it; `zt date now` shows the current
// time in both forms.

#include <cstdio>
#include <iostream>
#include <string>

#include "commands.h"
#include "zentrel/networking/internet_dates.h"

namespace ztool {
namespace {

void printDate(ZTDate date) {
  std::printf("ISO 8601:   %s\n", zt::ISO8601String(date).c_str());
  std::printf("RFC 1123:   %s\n", zt::rfc1123String(date).c_str());
  std::printf("Unix time:  %.3f\n", date.timeIntervalSince1970());
}

}  // namespace

int runDateParse(const std::string& text) {
  const auto match = zt::parseInternetDate(text);
  if (!match) {
    std::cerr << "zt date: \"" << text << "\" is not a date in any of the 7 Internet date formats"
              << " (RFC 1123, RFC 850, asctime, ISO 8601 variants; see zt date parse --help)\n";
    return 1;
  }
  printDate(match->date);
  std::printf("format:     %d, %s\n", match->format, match->pattern);
  return 0;
}

int runDateNow() {
  printDate(ZTDate::now());
  return 0;
}

void addDateCommand(CLI::App& app) {
  auto* command = app.add_subcommand("date", "Read and write Internet dates (HTTP, RFC 1123, ISO 8601)");
  command->require_subcommand(1);
  command->footer("Example: zt date parse 'Sun, 06 Nov 1994 08:49:37 GMT'\nExample: zt date now");
  auto* parse = command->add_subcommand("parse", "Read a date and show it in ISO 8601 and RFC 1123");
  parse->footer(
      "The text is tried with these patterns, in order, in English and GMT whatever the locale:\n"
      "  1  Sun, 06 Nov 1994 08:49:37 GMT          RFC 1123, HTTP's preferred form\n"
      "  2  Sun, 06 Nov 1994 08:49:37 +0000 (GMT)  with a numeric offset\n"
      "  3  Sunday, 06-Nov-94 08:49:37 GMT         RFC 850\n"
      "  4  2020-01-02T03:04:05Z                   ISO 8601 in UTC\n"
      "  5  2020-01-02T03:04:05.678+0100           ISO 8601 with milliseconds and offset\n"
      "  6  2020-01-02T03:04:05+0100               ISO 8601 with offset\n"
      "  7  Sun Nov  6 08:49:37 1994               the C library's asctime()\n"
      "The whole text must match. Exit status 0, or 1 when no pattern reads it.\n\n"
      "Example: zt date parse 'Sun, 06 Nov 1994 08:49:37 GMT'");
  static std::string text;
  parse->add_option("text", text, "The date text (quote it)")->required();
  parse->callback([] {
    if (runDateParse(text) != 0) throw CLI::RuntimeError(1);
  });
  auto* now = command->add_subcommand("now", "Show the current time in ISO 8601 and RFC 1123");
  now->footer("Example: zt date now");
  now->callback([] { runDateNow(); });
}

}  // namespace ztool
