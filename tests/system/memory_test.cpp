#include "zentrel/system/memory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "system/internal/text_files.h"

namespace {

using namespace zt::system_internal;

// /proc/meminfo as a 6.1 kernel prints it on a 24 GiB machine (lines not read are cut).
constexpr const char* kMeminfo =
    "MemTotal:       24684096 kB\n"
    "MemFree:        22813732 kB\n"
    "MemAvailable:   23561308 kB\n"
    "Buffers:            5388 kB\n"
    "Cached:           929968 kB\n"
    "SwapCached:            0 kB\n"
    "Active:           475408 kB\n"
    "Inactive:        1202624 kB\n"
    "Active(anon):       1660 kB\n"
    "Inactive(anon):   749804 kB\n"
    "Active(file):     473748 kB\n"
    "Inactive(file):   452820 kB\n"
    "Unevictable:       17560 kB\n"
    "Mlocked:           16504 kB\n"
    "Slab:             106452 kB\n"
    "SReclaimable:      80096 kB\n"
    "SUnreclaim:        26356 kB\n"
    "KernelStack:        1968 kB\n"
    "PageTables:         5396 kB\n"
    "HugePages_Total:       0\n";

TEST(Memory, FiguresFromKernelText) {
  EXPECT_EQ(freeMemoryFromMeminfo(kMeminfo), 22813732ull * 1024);
  const std::uint64_t parts = 22813732ull + 475408 + 1202624 + 17560 + 26356 + 1968 + 5396;
  EXPECT_EQ(otherMemoryFromMeminfo(kMeminfo), (24684096ull - parts) * 1024);
  // "Active(anon)" is a different line from "Active"; unit-less values count as they stand.
  EXPECT_EQ(meminfoBytes(kMeminfo, "Active"), 475408ull * 1024);
  EXPECT_EQ(meminfoBytes(kMeminfo, "HugePages_Total"), 0u);
}

TEST(Memory, DamagedTextGivesZero) {
  EXPECT_EQ(freeMemoryFromMeminfo(""), 0u);
  EXPECT_EQ(freeMemoryFromMeminfo("MemFree: lots kB\n"), 0u);
  EXPECT_EQ(freeMemoryFromMeminfo("MemFree: 99999999999999999999999 kB\n"), 0u);
  EXPECT_EQ(freeMemoryFromMeminfo("MemFre"), 0u);
  // Truncated in the middle of the lines the other figure needs.
  std::string text = kMeminfo;
  EXPECT_EQ(otherMemoryFromMeminfo(text.substr(0, text.find("KernelStack"))), 0u);
  // Parts adding up to more than the total do not wrap around.
  EXPECT_EQ(otherMemoryFromMeminfo("MemTotal: 10 kB\nMemFree: 9 kB\nActive: 5 kB\nInactive: 0 kB\n"
                                   "Unevictable: 0 kB\nSUnreclaim: 0 kB\nKernelStack: 0 kB\nPageTables: 0 kB\n"),
            0u);
  EXPECT_EQ(freeMemoryAmountAt("/nonexistent-root"), 0u);
  EXPECT_EQ(otherMemoryAmountAt("/nonexistent-root"), 0u);
}

TEST(Memory, AgreesWithTheRunningKernel) {
  std::ifstream in("/proc/meminfo");
  std::stringstream text;
  text << in.rdbuf();
  const std::uint64_t free = ZTGetFreeMemoryAmount();
  const std::uint64_t total = *meminfoBytes(text.str(), "MemTotal");
  ASSERT_GT(free, 0u);
  EXPECT_LT(free, total);
  // Free memory moves between two reads; a tenth of the total is far more than it moves here.
  const auto expected = static_cast<double>(freeMemoryFromMeminfo(text.str()));
  EXPECT_NEAR(static_cast<double>(free), expected, static_cast<double>(total) / 10);
  EXPECT_LT(ZTGetOtherMemoryAmount(), total);
}

}  // namespace
