// `zt demo`: runs every tour of the library, one after another.

#include <functional>
#include <iostream>
#include <utility>
#include <vector>

#include "commands.h"

namespace ztool {

void addDemoCommand(CLI::App& app) {
  auto* command = app.add_subcommand("demo", "Show the library at work: every tour, one after another");
  command->footer("Example: zt demo");
  command->callback([] {
    const std::vector<std::pair<const char*, std::function<int()>>> tours = {
        {"threads", runThreadsTourWithDefaults},
        {"operations", runOperationsTour},
        {"collections", runCollectionsTour},
        {"files", runFilesTourWithDefaults},
        {"geometry", runGeometryTour},
        {"text", runTextTourWithDefaults},
        {"sysinfo", runSysinfoWithDefaults},
        {"format", runFormatTour},
        {"handoff", runHandoffDemo},
    };
    int failures = 0;
    for (const auto& [name, tour] : tours) {
      std::cout << "== zt " << name << " ==\n";
      if (tour() != 0) {
        ++failures;
        std::cout << "(the " << name << " tour saw something unexpected; see above)\n";
      }
      std::cout << "\n";
    }
    if (failures) throw CLI::RuntimeError(1);
  });
}

}  // namespace ztool
