# Three Debian packages from one release build (scripts/package, or `cpack` in the build folder):
#   libzentrel<SOVERSION>  runtime: the shared libraries with their soname; its dependencies are
#                          computed by dpkg-shlibdeps, and it ships a shlibs file for its users;
#   libzentrel-dev         headers, static libraries, the CMake package and the pkg-config files;
#                          depends on the runtime package and on the -dev packages whose libraries
#                          the static libraries and the .pc files hand on to a consumer's linker;
#   zentrel-tools          zt, its man page and its bash completion.
# Each install() rule names its component: runtime, development or tools. The package version is
# the project version; the runtime package's name carries the soname (ZT_SOVERSION), so a release
# that breaks the ABI installs beside the old one.
get_property(zt_areas GLOBAL PROPERTY ZT_AREAS)

# What the packages hold, and nothing else: cpack and `cmake --install` do not build the whole tree
# (tests, benchmarks) first; scripts/package builds this target.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)
add_custom_target(zt_package_contents)
foreach(area IN LISTS zt_areas)
  add_dependencies(zt_package_contents zentrel_${area} zentrel_${area}_static)
endforeach()
foreach(target zt zt_docs)
  if(TARGET ${target})
    add_dependencies(zt_package_contents ${target})
  endif()
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zentrel)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "ZentrelLib maintainers <zentrel@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_STRIP_FILES ON)  # the release build carries debug information; packages do not

set(zt_runtime_package libzentrel${ZT_SOVERSION})
set(zt_exact "(= ${PROJECT_VERSION}-1)")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${zt_runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION} (shared libraries)
 One shared library per area (libzentrel-<area>.so.${ZT_SOVERSION}); each links only the areas and
 third-party libraries it uses.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zentrel-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "${PROJECT_DESCRIPTION} (the zt command-line tool)
 zt puts the library's facilities in a user's hands: run `zt --help` or `man zt`.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${zt_runtime_package} ${zt_exact}")

# dpkg-shlibdeps finds the library's own shared objects in the build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "")
foreach(area IN LISTS zt_areas)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src/${area})
endforeach()

# The Debian packages that own the pkg-config modules the areas hand on (Requires.private, and the
# find code of the static libraries in the CMake package).
set(zt_dev_packages "")
find_program(ZT_DPKG_QUERY dpkg-query)
find_program(ZT_PKG_CONFIG NAMES pkg-config pkgconf)
foreach(area IN LISTS zt_areas)
  get_property(modules GLOBAL PROPERTY ZT_AREA_PC_PRIVATE_${area})
  foreach(module IN LISTS modules)
    string(REGEX REPLACE "[ <>=].*" "" module "${module}")
    if(NOT ZT_DPKG_QUERY OR NOT ZT_PKG_CONFIG OR module STREQUAL "")
      continue()
    endif()
    execute_process(COMMAND ${ZT_PKG_CONFIG} --variable=pcfiledir ${module}
                    OUTPUT_VARIABLE dir OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE status)
    set(owner "")
    if(status EQUAL 0)
      file(REAL_PATH ${dir}/${module}.pc real)
      foreach(candidate ${dir}/${module}.pc ${real})
        execute_process(COMMAND ${ZT_DPKG_QUERY} -S ${candidate}
                        OUTPUT_VARIABLE owner ERROR_QUIET RESULT_VARIABLE status)
        if(status EQUAL 0)
          break()
        endif()
      endforeach()
    endif()
    if(NOT status EQUAL 0 OR NOT owner MATCHES "^([^:,]+)")
      message(WARNING "No Debian package owns the pkg-config module ${module}: libzentrel-dev will not depend on it")
      continue()
    endif()
    list(APPEND zt_dev_packages ${CMAKE_MATCH_1})
  endforeach()
endforeach()
list(REMOVE_DUPLICATES zt_dev_packages)
list(SORT zt_dev_packages)
list(PREPEND zt_dev_packages "${zt_runtime_package} ${zt_exact}" "pkg-config | pkgconf")
list(JOIN zt_dev_packages ", " zt_dev_depends)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzentrel-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} (development files)
 Headers, static libraries, the CMake package (find_package(ZentrelLib), one component per area)
 and the pkg-config files (zentrel, zentrel-<area>).")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${zt_dev_depends}")

include(CPack)
