// `zt format`: the formatters at work — lengths in a fixed unit or the locale's, points and pixels
// fields, digits-only input, "Today"/"Yesterday" dates, marker mark-up and country flags. Each
// subcommand shows a value and reads the text back as a field would; --locale pins the locale
// (the process's locale otherwise).

#include <iostream>
#include <map>
#include <sstream>
#include <string>

#include "commands.h"
#include "zentrel/text/attributed_string_formatter.h"
#include "zentrel/text/formatted_date.h"
#include "zentrel/text/length_formatter.h"
#include "zentrel/text/locale.h"
#include "zentrel/text/number_formatters.h"

namespace ztool {
namespace {

struct FormatOptions {
  std::string locale;
  double value = 0;
  std::string unit;
  bool longNames = false;
  bool zeroEmpty = false;
  std::string text;
  std::string marker = "~";
  int daysAgo = 0;
};

FormatOptions& options() {
  static FormatOptions shared;
  return shared;
}

const std::map<std::string, ZTLengthFormatterUnit>& unitNames() {
  static const std::map<std::string, ZTLengthFormatterUnit> names = {
      {"mm", ZTLengthFormatterUnit::Millimeter}, {"cm", ZTLengthFormatterUnit::Centimeter},
      {"m", ZTLengthFormatterUnit::Meter},       {"km", ZTLengthFormatterUnit::Kilometer},
      {"in", ZTLengthFormatterUnit::Inch},       {"ft", ZTLengthFormatterUnit::Foot},
      {"yd", ZTLengthFormatterUnit::Yard},       {"mi", ZTLengthFormatterUnit::Mile},
  };
  return names;
}

void useLocale() {
  if (!options().locale.empty()) ZTSetCurrentLocale(ZTLocale(options().locale));
}

std::string shown(const std::optional<std::string>& text) { return text ? "\"" + *text + "\"" : "(nothing)"; }

std::string read(const ZTFormatter& formatter, const std::string& text) {
  ZTValue value;
  std::string error;
  if (!formatter.getObjectValue(&value, text, &error)) return "refused" + (error.empty() ? "" : " (" + error + ")");
  if (value.isNull()) return "no value";
  std::ostringstream out;
  out << value.doubleValue();
  return out.str();
}

ZTLengthFormatter lengthFormatter() {
  ZTLengthFormatter length;
  if (!options().unit.empty()) {
    length.setUsesLocaleUnit(false);
    length.setUnit(unitNames().at(options().unit));
  }
  length.setUnitStyle(options().longNames ? ZTFormattingUnitStyle::Long : ZTFormattingUnitStyle::Medium);
  return length;
}

int runLength() {
  useLocale();
  const ZTLengthFormatter length = lengthFormatter();
  const auto text = length.stringForObjectValue(options().value);
  std::ostringstream metres;  // not std::cout's own precision, which other tours may have changed
  metres << options().value;
  std::cout << metres.str() << " m in " << ZTLocale::current().localeIdentifier() << ": " << shown(text) << "\n";
  if (text) std::cout << "read back: " << read(length, *text) << " m\n";
  return text ? 0 : 1;
}

int runReadLength() {
  useLocale();
  const ZTLengthFormatter length = lengthFormatter();
  ZTValue metres;
  if (!length.getObjectValue(&metres, options().text)) {
    std::cout << "\"" << options().text << "\" is no length (a number and a unit name, such as \"12 in\")\n";
    return 1;
  }
  std::ostringstream number;
  number << metres.doubleValue();
  std::cout << "\"" << options().text << "\" reads as " << number.str() << " m\n";
  return 0;
}

int runNumberField(ZTNumberFormatter& field) {
  const ZTValue value(options().value);
  const auto text = field.stringForObjectValue(value);
  std::cout << "shown:   " << shown(text) << "\nediting: " << shown(field.editingStringForObjectValue(value)) << "\n";
  if (text) std::cout << "read back: " << read(field, *text) << "\n";
  if (!options().text.empty()) std::cout << "\"" << options().text << "\" reads as: " << read(field, options().text) << "\n";
  return 0;
}

int runPoints() {
  useLocale();
  ZTPointsNumberFormatter points;
  points.setReplaceZeroValueWithEmptyString(options().zeroEmpty);
  return runNumberField(points);
}

int runPixels() {
  useLocale();
  ZTPixelsNumberFormatter pixels;
  return runNumberField(pixels);
}

int runDigits() {
  const ZTDigitsOnlyNumberFormatter digits;
  const bool valid = digits.isPartialStringValid(options().text);
  std::cout << "\"" << options().text << "\" " << (valid ? "may stand in a digits-only field" : "is refused by a digits-only field") << "\n";
  return valid ? 0 : 1;
}

int runDate() {
  useLocale();
  const ZTDate now = ZTDate::now();
  const ZTFormattedDate date(now.dateByAddingTimeInterval(-86400.0 * options().daysAgo));
  std::cout << "now minus " << options().daysAgo << " x 24 h: " << date.formattedStringRepresentation(now) << "\n";
  return 0;
}

int runMarkers() {
  ZTValue bold;
  bold["bold"] = true;
  const auto result = ZTAttributedStringFormatter::applyFormattingToAttributedString(
      ZTAttributedString(options().text), options().marker, bold);
  std::cout << "text: \"" << result.string() << "\"\n";
  for (const auto& run : result.runs()) {
    std::string attributes = run.attributes.description();
    std::erase(attributes, '\n');
    std::cout << "  UTF-16 units [" << run.location << ", " << run.location + run.length << "): " << attributes << "\n";
  }
  return 0;
}

int runFlag() {
  const auto flag = zt::emojiFlagForISOCountryCode(options().text);
  if (!flag) {
    std::cout << "\"" << options().text << "\" is no ISO country code (they are two upper-case letters)\n";
    return 1;
  }
  std::cout << options().text << " " << *flag << "\n";
  return 0;
}

void addRunner(CLI::App* command, int (*run)()) {
  command->callback([run] {
    const int status = run();
    if (status != 0) throw CLI::RuntimeError(status);
  });
}

}  // namespace

int runFormatTour() {
  std::cout << "Formatters\n\n";
  options() = FormatOptions{};
  options().value = 0.5;
  options().unit = "cm";
  std::cout << "1. ";
  for (const char* locale : {"en_US", "de_DE"}) {
    options().locale = locale;
    runLength();
  }
  options().unit.clear();
  options().value = 2500;
  std::cout << "2. The locale's own unit: ";
  runLength();
  options().locale = "en_US";
  std::cout << "3. Points field, 12.25:\n";
  options().value = 12.25;
  options().text = "12";
  runPoints();
  std::cout << "4. ";
  options().marker = "~";
  options().text = "Save ~all~ files?";
  runMarkers();
  std::cout << "5. Flags: ";
  options().text = "CH";
  runFlag();
  options().daysAgo = 1;
  std::cout << "6. ";
  return runDate();
}

void addFormatCommand(CLI::App& app) {
  auto* command = app.add_subcommand("format", "Formatters: lengths, points, pixels, digits, dates, markers, flags");
  command->footer("Without a subcommand, shows each formatter once.\n\nExample: zt format --locale de_DE length 0.5");
  command->add_option("--locale", options().locale, "Locale to use, such as de_DE (the process's locale otherwise)");
  command->require_subcommand(0, 1);
  command->callback([command] {
    if (command->get_subcommands().empty() && runFormatTour() != 0) throw CLI::RuntimeError(1);
  });

  auto* length = command->add_subcommand("length", "Show a length given in metres, and read the text back");
  length->footer("Example: zt format length 2.54 --unit in --long");
  length->add_option("metres", options().value, "The length in metres")->required();
  length->add_option("--unit", options().unit, "A fixed unit (the locale picks one otherwise)")
      ->check(CLI::IsMember({"mm", "cm", "m", "km", "in", "ft", "yd", "mi"}));
  length->add_flag("--long", options().longNames, "Unit names written out (\"inches\")");
  addRunner(length, runLength);

  auto* readLength = command->add_subcommand("read-length", "Read a typed length such as \"12 in\" as metres");
  readLength->footer("Example: zt format read-length \"12 in\"");
  readLength->add_option("text", options().text, "The typed length")->required();
  readLength->add_flag("--long", options().longNames, "Expect unit names written out");
  addRunner(readLength, runReadLength);

  auto* points = command->add_subcommand("points", "A points field: shown, editing and typed texts");
  points->footer("Example: zt format points 12.25 --read \"12 pt\"");
  points->add_option("value", options().value, "The number of points")->required();
  points->add_option("--read", options().text, "A typed text to read, such as \"12\" or \"12 pt\"");
  points->add_flag("--zero-empty", options().zeroEmpty, "Show numbers below 1 as an empty field");
  addRunner(points, runPoints);

  auto* pixels = command->add_subcommand("pixels", "A pixels field: whole numbers with \" px\"");
  pixels->footer("Example: zt format pixels 640 --read \"640 px\"");
  pixels->add_option("value", options().value, "The number of pixels")->required();
  pixels->add_option("--read", options().text, "A typed text to read");
  addRunner(pixels, runPixels);

  auto* digits = command->add_subcommand("digits", "Whether a text may stand in a digits-only field");
  digits->footer("Example: zt format digits 0042");
  digits->add_option("text", options().text, "The text being typed")->required();
  addRunner(digits, runDigits);

  auto* date = command->add_subcommand("date", "A date shown as Today, Yesterday or the medium date");
  date->footer("Example: zt format date 1");
  date->add_option("days-ago", options().daysAgo, "How many days back (0 = now)")->required();
  addRunner(date, runDate);

  auto* markers = command->add_subcommand("markers", "Mark-up with pairs of markers: \"a ~bold~ word\"");
  markers->footer("Example: zt format markers \"Save ~all~ files?\"");
  markers->add_option("text", options().text, "The marked-up text")->required();
  markers->add_option("--marker", options().marker, "The marker (default ~)");
  addRunner(markers, runMarkers);

  auto* flag = command->add_subcommand("flag", "The emoji flag of an ISO country code");
  flag->footer("Example: zt format flag CH");
  flag->add_option("code", options().text, "Two upper-case letters, such as CH")->required();
  addRunner(flag, runFlag);
}

}  // namespace ztool
