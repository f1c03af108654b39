# The installed libraries: ZentrelLib (shared) and ZentrelLib_static, each holding every area.
get_property(zt_areas GLOBAL PROPERTY ZT_AREAS)
get_property(zt_area_libraries GLOBAL PROPERTY ZT_AREA_LIBRARIES)
list(REMOVE_DUPLICATES zt_area_libraries)

set(zt_all_objects "")
foreach(area IN LISTS zt_areas)
  list(APPEND zt_all_objects $<TARGET_OBJECTS:zt_${area}_objects>)
endforeach()

add_library(ZentrelLib SHARED ${zt_all_objects})
add_library(ZentrelLib_static STATIC ${zt_all_objects})
set_target_properties(ZentrelLib PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME ZentrelLib)
set_target_properties(ZentrelLib_static PROPERTIES OUTPUT_NAME ZentrelLib EXPORT_NAME ZentrelLibStatic)
foreach(lib ZentrelLib ZentrelLib_static)
  target_include_directories(${lib} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_compile_features(${lib} PUBLIC cxx_std_20)
endforeach()
# The shared library hides its dependencies; the static one hands them on to whoever links it.
target_link_libraries(ZentrelLib PUBLIC Threads::Threads PRIVATE ${zt_area_libraries})
target_link_libraries(ZentrelLib_static PUBLIC Threads::Threads)
foreach(dep IN LISTS zt_area_libraries)
  if(dep MATCHES "^zt_")
    continue()  # header-only helpers used inside the build
  endif()
  target_link_libraries(ZentrelLib_static PUBLIC $<LINK_ONLY:${dep}>)
endforeach()
add_library(ZentrelLib::ZentrelLib ALIAS ZentrelLib)
add_library(ZentrelLib::ZentrelLibStatic ALIAS ZentrelLib_static)

include(CMakePackageConfigHelpers)
set(ZT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/ZentrelLib)
install(TARGETS ZentrelLib ZentrelLib_static EXPORT ZentrelLibTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/zentrel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT ZentrelLibTargets NAMESPACE ZentrelLib:: DESTINATION ${ZT_CMAKE_DIR})
configure_package_config_file(cmake/ZentrelLibConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/ZentrelLibConfig.cmake INSTALL_DESTINATION ${ZT_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/ZentrelLibConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ZentrelLibConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/ZentrelLibConfigVersion.cmake
        DESTINATION ${ZT_CMAKE_DIR})
# The .pc file finds its prefix relative to itself, so an installed tree can be moved.
file(RELATIVE_PATH ZT_PC_PREFIX_FROM_PCDIR "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(cmake/zentrel.pc.in ${CMAKE_CURRENT_BINARY_DIR}/zentrel.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zentrel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
