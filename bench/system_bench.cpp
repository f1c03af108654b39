// Each system query against the bare system call or file read it stands on, in the same run: the
// memory figures against fopen/fscanf of /proc/meminfo, the boot date against a read of btime, the
// version against a line-by-line read of os-release, and so on. The ratio is the price of the
// parsing, the fallbacks and the checks.

#include <benchmark/benchmark.h>

#include <ifaddrs.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zentrel/system/boot_time.h"
#include "zentrel/system/environment.h"
#include "zentrel/system/input_devices.h"
#include "zentrel/system/machine.h"
#include "zentrel/system/memory.h"
#include "zentrel/system/network.h"
#include "zentrel/system/os_version.h"
#include "zentrel/system/pdf_handler.h"

namespace {

// The whole of a small file with stdio, as a program that does not care for errors would read it.
std::size_t bareRead(const char* path) {
  FILE* file = std::fopen(path, "r");
  if (!file) return 0;
  char buffer[8192];
  std::size_t total = 0;
  while (std::size_t got = std::fread(buffer, 1, sizeof buffer, file)) total += got;
  std::fclose(file);
  return total;
}

void Memory_Free(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTGetFreeMemoryAmount());
}
void Memory_Other(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTGetOtherMemoryAmount());
}
void Memory_Peer_FscanfMemFree(benchmark::State& state) {
  for (auto _ : state) {
    unsigned long long total = 0, free = 0;
    FILE* file = std::fopen("/proc/meminfo", "r");
    if (file) {
      if (std::fscanf(file, "MemTotal: %llu kB MemFree: %llu kB", &total, &free) != 2) free = 0;
      std::fclose(file);
    }
    benchmark::DoNotOptimize(free * 1024);
  }
}

void Network_MACAddress(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTGetMACAddressString());
}
void Network_Peer_RouteAndAddressReads(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(bareRead("/proc/net/route"));
    benchmark::DoNotOptimize(bareRead("/sys/class/net/eth0/address"));
  }
}
void Network_EthernetIP(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ethernetIP());
}
void Network_Peer_Getifaddrs(benchmark::State& state) {
  for (auto _ : state) {
    struct ifaddrs* list = nullptr;
    if (::getifaddrs(&list) == 0) ::freeifaddrs(list);
    benchmark::DoNotOptimize(list);
  }
}

void Machine_Model(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTGetMacMachineModel());
}
void Machine_ModelKept(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTGetDeviceModelString());
}
void Machine_DeviceName(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTGetDeviceName());
}
void Machine_Peer_Gethostname(benchmark::State& state) {
  char name[256];
  for (auto _ : state) benchmark::DoNotOptimize(::gethostname(name, sizeof name));
}
void Machine_UserName(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTUserName());
}
void Machine_Peer_Getpwuid(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(::getpwuid(::getuid()));
}
void Machine_AppNameFallback(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTAppName());
}

void Version_System(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTGetSystemVersion());
}
void Version_Triple(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTOperatingSystemVersion());
}
void Version_AtLeast(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(isOperatingSystemAtLeastVersion(11, 0));
}
void Version_Peer_FgetsVersionID(benchmark::State& state) {
  for (auto _ : state) {
    long major = 0;
    FILE* file = std::fopen("/etc/os-release", "r");
    if (file) {
      char line[512];
      while (std::fgets(line, sizeof line, file)) {
        if (std::strncmp(line, "VERSION_ID=", 11) == 0) {
          major = std::strtol(line + 11 + (line[11] == '"'), nullptr, 10);
          break;
        }
      }
      std::fclose(file);
    }
    benchmark::DoNotOptimize(major);
  }
}
void Version_Kernel(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTKernelVersion());
}
void Version_Peer_Uname(benchmark::State& state) {
  struct utsname names;
  for (auto _ : state) benchmark::DoNotOptimize(::uname(&names));
}

void Boot_Date(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTGetBootDate());
}
void Boot_Uptime(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTGetSystemUptime());
}
void Boot_Peer_ClockBoottime(benchmark::State& state) {
  struct timespec now;
  for (auto _ : state) benchmark::DoNotOptimize(::clock_gettime(CLOCK_BOOTTIME, &now));
}
void Boot_Peer_ReadProcStat(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(bareRead("/proc/stat"));
}

void Input_PointingDevice(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(isAnyPointingDeviceConnected());
}
void Input_Peer_ReadDeviceList(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(bareRead("/proc/bus/input/devices"));
}

void PDF_IsDefaultHandler(benchmark::State& state) {
  ZTSetAppDesktopEntryID("org.zentrel.Bench.desktop");
  for (auto _ : state) benchmark::DoNotOptimize(isAppDefaultPDFHandler());
  ZTSetAppDesktopEntryID("");
}

void Environment_TestHarness(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTIsRunningInTestEnvironment());
}
void Environment_Peer_Getenv(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(std::getenv("ZT2UITests"));
}
void Environment_Debugger(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(ZTIsDebuggerAttached());
}
void Environment_Peer_ReadStatus(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(bareRead("/proc/self/status"));
}

}  // namespace

BENCHMARK(Memory_Free);
BENCHMARK(Memory_Other);
BENCHMARK(Memory_Peer_FscanfMemFree);
BENCHMARK(Network_MACAddress);
BENCHMARK(Network_Peer_RouteAndAddressReads);
BENCHMARK(Network_EthernetIP);
BENCHMARK(Network_Peer_Getifaddrs);
BENCHMARK(Machine_Model);
BENCHMARK(Machine_ModelKept);
BENCHMARK(Machine_DeviceName);
BENCHMARK(Machine_Peer_Gethostname);
BENCHMARK(Machine_UserName);
BENCHMARK(Machine_Peer_Getpwuid);
BENCHMARK(Machine_AppNameFallback);
BENCHMARK(Version_System);
BENCHMARK(Version_Triple);
BENCHMARK(Version_AtLeast);
BENCHMARK(Version_Peer_FgetsVersionID);
BENCHMARK(Version_Kernel);
BENCHMARK(Version_Peer_Uname);
BENCHMARK(Boot_Date);
BENCHMARK(Boot_Uptime);
BENCHMARK(Boot_Peer_ClockBoottime);
BENCHMARK(Boot_Peer_ReadProcStat);
BENCHMARK(Input_PointingDevice);
BENCHMARK(Input_Peer_ReadDeviceList);
BENCHMARK(PDF_IsDefaultHandler);
BENCHMARK(Environment_TestHarness);
BENCHMARK(Environment_Peer_Getenv);
BENCHMARK(Environment_Debugger);
BENCHMARK(Environment_Peer_ReadStatus);

BENCHMARK_MAIN();
