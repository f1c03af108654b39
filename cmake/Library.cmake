# The umbrella targets and the installed package: headers, one shared and one static library per
# area (see cmake/Areas.cmake), a CMake package with one component per area, and one pkg-config
# file per area plus the umbrella zentrel.pc.
get_property(zt_areas GLOBAL PROPERTY ZT_AREAS)

# ZentrelLib::ZentrelLib links every area's shared library; ZentrelLib::ZentrelLibStatic every
# static one.
add_library(ZentrelLib INTERFACE)
add_library(ZentrelLib_static INTERFACE)
set_target_properties(ZentrelLib PROPERTIES EXPORT_NAME ZentrelLib)
set_target_properties(ZentrelLib_static PROPERTIES EXPORT_NAME ZentrelLibStatic)
foreach(area IN LISTS zt_areas)
  target_link_libraries(ZentrelLib INTERFACE zentrel_${area})
  target_link_libraries(ZentrelLib_static INTERFACE zentrel_${area}_static)
endforeach()
add_library(ZentrelLib::ZentrelLib ALIAS ZentrelLib)
add_library(ZentrelLib::ZentrelLibStatic ALIAS ZentrelLib_static)

include(CMakePackageConfigHelpers)
set(ZT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZentrelLib)
set(ZT_PC_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(DIRECTORY include/zentrel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
# The .pc files find their prefix relative to themselves, so an installed tree can be moved.
file(RELATIVE_PATH zt_pc_prefix_from_pcdir "/prefix/${ZT_PC_DIR}" "/prefix")
set(zt_pc_head "prefix=\${pcfiledir}/${zt_pc_prefix_from_pcdir}
libdir=\${prefix}/${CMAKE_INSTALL_LIBDIR}
includedir=\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}
")

set(ZT_CONFIG_AREAS "")
set(ZT_CONFIG_USES "")
set(zt_pc_all "")
foreach(area IN LISTS zt_areas)
  get_property(uses GLOBAL PROPERTY ZT_AREA_USES_${area})
  get_property(pc_private GLOBAL PROPERTY ZT_AREA_PC_PRIVATE_${area})
  get_property(find_code GLOBAL PROPERTY ZT_AREA_FIND_${area})

  install(TARGETS zentrel_${area} zentrel_${area}_static EXPORT ZentrelLib-${area}Targets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT ZentrelLib-${area}Targets NAMESPACE ZentrelLib:: DESTINATION ${ZT_CMAKE_DIR}
          COMPONENT development)
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/ZentrelLib-${area}Dependencies.cmake
    "# Third-party packages that ZentrelLib::${area}_static passes on to the linker.\n${find_code}")
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ZentrelLib-${area}Dependencies.cmake DESTINATION ${ZT_CMAKE_DIR}
          COMPONENT development)
  string(APPEND ZT_CONFIG_AREAS " ${area}")
  string(APPEND ZT_CONFIG_USES "set(_zt_uses_${area} ${uses})\n")

  list(TRANSFORM uses PREPEND "zentrel-" OUTPUT_VARIABLE pc_requires)
  list(JOIN pc_requires " " pc_requires)
  list(JOIN pc_private " " pc_private)
  set(pc_threads "")
  if(area STREQUAL "platform")
    set(pc_threads " -pthread")
  endif()
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/zentrel-${area}.pc "${zt_pc_head}
Name: zentrel-${area}
Description: ZentrelLib, area ${area}
Version: ${PROJECT_VERSION}
Requires: ${pc_requires}
Requires.private: ${pc_private}
Libs: -L\${libdir} -lzentrel-${area}${pc_threads}
Cflags: -I\${includedir} -std=c++20
")
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zentrel-${area}.pc DESTINATION ${ZT_PC_DIR} COMPONENT development)
  list(APPEND zt_pc_all zentrel-${area})
endforeach()

list(JOIN zt_pc_all " " zt_pc_all)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/zentrel.pc "${zt_pc_head}
Name: zentrel
Description: ${PROJECT_DESCRIPTION} (every area)
Version: ${PROJECT_VERSION}
Requires: ${zt_pc_all}
Cflags: -I\${includedir}
")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zentrel.pc DESTINATION ${ZT_PC_DIR} COMPONENT development)

install(TARGETS ZentrelLib ZentrelLib_static EXPORT ZentrelLibTargets COMPONENT development)
install(EXPORT ZentrelLibTargets NAMESPACE ZentrelLib:: DESTINATION ${ZT_CMAKE_DIR} COMPONENT development)
configure_package_config_file(cmake/ZentrelLibConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/ZentrelLibConfig.cmake INSTALL_DESTINATION ${ZT_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZentrelLibConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ZentrelLibConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/ZentrelLibConfigVersion.cmake
        DESTINATION ${ZT_CMAKE_DIR} COMPONENT development)
