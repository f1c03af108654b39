# Every third-party package the library builds against. All are Debian 12 packages installed by
# scripts/install-deps.
find_package(Threads REQUIRED)
find_package(OpenSSL 3 REQUIRED)
find_package(ZLIB REQUIRED)
find_package(nlohmann_json 3 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(ZT_ICU REQUIRED IMPORTED_TARGET icu-uc icu-i18n)
pkg_check_modules(ZT_FONTS REQUIRED IMPORTED_TARGET fontconfig freetype2 harfbuzz cairo)
pkg_check_modules(ZT_PANGO REQUIRED IMPORTED_TARGET pangocairo pangoft2)
pkg_check_modules(ZT_PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(ZT_AVAHI REQUIRED IMPORTED_TARGET avahi-client)

find_path(ZT_ASIO_INCLUDE_DIR asio.hpp REQUIRED)
add_library(zt_asio INTERFACE)
target_include_directories(zt_asio SYSTEM INTERFACE ${ZT_ASIO_INCLUDE_DIR})
target_compile_definitions(zt_asio INTERFACE ASIO_STANDALONE ASIO_NO_DEPRECATED)
target_link_libraries(zt_asio INTERFACE Threads::Threads)

# How the installed package names each dependency an area may list in zt_add_area(LIBRARIES):
# its pkg-config modules (for Requires.private of zentrel-<area>.pc) and the CMake code that finds
# it again in a consumer (needed there only by the static libraries, which pass it on).
#   zt_describe_dependency(<target> [HEADER_ONLY] [PKG_CONFIG <modules...>] [FIND <cmake code>])
function(zt_describe_dependency target)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "HEADER_ONLY" "FIND" "PKG_CONFIG")
  string(MAKE_C_IDENTIFIER "${target}" id)
  set_property(GLOBAL PROPERTY ZT_DEP_DESCRIBED_${id} TRUE)
  set_property(GLOBAL PROPERTY ZT_DEP_HEADER_ONLY_${id} ${ARG_HEADER_ONLY})
  set_property(GLOBAL PROPERTY ZT_DEP_PC_${id} "${ARG_PKG_CONFIG}")
  set_property(GLOBAL PROPERTY ZT_DEP_FIND_${id} "${ARG_FIND}")
endfunction()

function(zt_dependency_info target out_pc out_find out_header_only)
  string(MAKE_C_IDENTIFIER "${target}" id)
  get_property(described GLOBAL PROPERTY ZT_DEP_DESCRIBED_${id})
  if(NOT described)
    message(FATAL_ERROR "${target} is used by an area but not described with zt_describe_dependency()")
  endif()
  get_property(pc GLOBAL PROPERTY ZT_DEP_PC_${id})
  get_property(find GLOBAL PROPERTY ZT_DEP_FIND_${id})
  get_property(header_only GLOBAL PROPERTY ZT_DEP_HEADER_ONLY_${id})
  set(${out_pc} "${pc}" PARENT_SCOPE)
  set(${out_find} "${find}" PARENT_SCOPE)
  set(${out_header_only} "${header_only}" PARENT_SCOPE)
endfunction()

zt_describe_dependency(zt_asio HEADER_ONLY)
zt_describe_dependency(OpenSSL::Crypto PKG_CONFIG libcrypto FIND "find_package(OpenSSL 3 QUIET)")
zt_describe_dependency(OpenSSL::SSL PKG_CONFIG libssl FIND "find_package(OpenSSL 3 QUIET)")
zt_describe_dependency(PkgConfig::ZT_AVAHI PKG_CONFIG avahi-client
  FIND "pkg_check_modules(ZT_AVAHI QUIET IMPORTED_TARGET avahi-client)")
zt_describe_dependency(ZLIB::ZLIB PKG_CONFIG zlib FIND "find_package(ZLIB QUIET)")
zt_describe_dependency(nlohmann_json::nlohmann_json HEADER_ONLY)
zt_describe_dependency(PkgConfig::ZT_ICU PKG_CONFIG icu-uc icu-i18n
  FIND "pkg_check_modules(ZT_ICU QUIET IMPORTED_TARGET icu-uc icu-i18n)")
zt_describe_dependency(PkgConfig::ZT_FONTS PKG_CONFIG fontconfig freetype2 harfbuzz cairo
  FIND "pkg_check_modules(ZT_FONTS QUIET IMPORTED_TARGET fontconfig freetype2 harfbuzz cairo)")
zt_describe_dependency(PkgConfig::ZT_PANGO PKG_CONFIG pangocairo pangoft2
  FIND "pkg_check_modules(ZT_PANGO QUIET IMPORTED_TARGET pangocairo pangoft2)")
zt_describe_dependency(PkgConfig::ZT_PLIST PKG_CONFIG libplist-2.0
  FIND "pkg_check_modules(ZT_PLIST QUIET IMPORTED_TARGET libplist-2.0)")

if(ZT_BUILD_TESTS)
  find_package(GTest REQUIRED)
endif()
if(ZT_BUILD_BENCHMARKS)
  find_package(benchmark REQUIRED)
endif()
if(ZT_BUILD_TOOLS)
  find_package(CLI11 QUIET CONFIG)
  if(NOT CLI11_FOUND)
    find_path(ZT_CLI11_INCLUDE_DIR CLI/CLI.hpp REQUIRED)
    add_library(CLI11::CLI11 INTERFACE IMPORTED)
    target_include_directories(CLI11::CLI11 INTERFACE ${ZT_CLI11_INCLUDE_DIR})
  endif()
endif()
