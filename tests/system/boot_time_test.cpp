#include "zentrel/system/boot_time.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "system/internal/queries.h"
#include "system/internal/text_files.h"

namespace {

using namespace zt::system_internal;

TEST(BootTime, BtimeLineOfKernelStatistics) {
  constexpr const char* kStat =
      "cpu  2255 34 2290 22625563 6290 127 456 0 0 0\n"
      "cpu0 1132 34 1441 11311718 3675 127 438 0 0 0\n"
      "intr 114930548 113199788 3 0 5 263 0 4 [... 9 more]\n"
      "ctxt 1990473\n"
      "btime 1062191376\n"
      "processes 2915\n"
      "procs_running 1\n";
  EXPECT_EQ(bootTimeFromStat(kStat), 1062191376.0);
  EXPECT_EQ(bootTimeFromStat("cpu 1 2 3\n"), std::nullopt);
  EXPECT_EQ(bootTimeFromStat("btime \n"), std::nullopt);
  EXPECT_EQ(bootTimeFromStat("btime -5\n"), std::nullopt);
  EXPECT_EQ(bootTimeFromStat("btime 0\n"), std::nullopt);
  EXPECT_EQ(bootTimeFromStat("btime 123456789012345678901234\n"), std::nullopt);
  EXPECT_EQ(bootTimeFromStat("xbtime 5\n"), std::nullopt);
}

TEST(BootTime, AgreesWithTheKernelsUptime) {
  auto boot = ZTGetBootDate();
  ASSERT_TRUE(boot);
  EXPECT_EQ(ZTGetBootDate(), boot);  // kept after the first reading
  EXPECT_LT(*boot, ZTDate::now());
  // /proc/uptime counts from the same boot on the monotonic clock; btime is whole seconds and the
  // wall clock may have been stepped a little since.
  auto uptime = readTextFile("/proc/uptime");
  ASSERT_TRUE(uptime);
  const double kernelUptime = std::strtod(uptime->c_str(), nullptr);
  EXPECT_NEAR(ZTGetSystemUptime(), kernelUptime, 5.0);
}

}  // namespace
