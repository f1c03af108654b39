# Each area of the library is compiled once, with hidden visibility, into an object library
# (zt_<area>_objects). From those objects come:
#   zt_<area>               static, internal: what the area's tests and benchmarks link (they may use
#                           internal symbols, and build only the areas they need);
#   zentrel_<area>          the installed shared library libzentrel-<area>.so, exported as
#                           ZentrelLib::<area>; it exports only what carries ZT_API and keeps its
#                           third-party dependencies private;
#   zentrel_<area>_static   the installed static library libzentrel-<area>.a, exported as
#                           ZentrelLib::<area>_static; it hands its dependencies on to the linker.
# An area links the areas it uses and nothing else, so a program that needs geometry links
# libzentrel-geometry and libzentrel-platform only.
#
#   zt_add_area(<area> SOURCES <files...> [AREAS <areas used...>] [LIBRARIES <third-party targets...>])
#
# Third-party targets named in LIBRARIES must be described with zt_describe_dependency()
# (cmake/Dependencies.cmake) so that the installed CMake package and pkg-config files can name them.

set(ZT_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wno-missing-field-initializers)

function(zt_add_area area)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;AREAS;LIBRARIES")
  set(objects zt_${area}_objects)
  add_library(${objects} OBJECT ${ARG_SOURCES})
  set_target_properties(${objects} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_include_directories(${objects}
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_options(${objects} PRIVATE ${ZT_WARNINGS})
  target_link_libraries(${objects} PUBLIC Threads::Threads ${ARG_LIBRARIES})
  foreach(used IN LISTS ARG_AREAS)
    # Usage requirements only (include paths, definitions): objects never link objects.
    target_include_directories(${objects} PRIVATE $<TARGET_PROPERTY:zt_${used}_objects,INTERFACE_INCLUDE_DIRECTORIES>)
    target_compile_definitions(${objects} PRIVATE $<TARGET_PROPERTY:zt_${used}_objects,INTERFACE_COMPILE_DEFINITIONS>)
  endforeach()

  # Internal static library for tests and benchmarks.
  add_library(zt_${area} STATIC $<TARGET_OBJECTS:${objects}>)
  target_include_directories(zt_${area} PUBLIC ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(zt_${area} PUBLIC Threads::Threads ${ARG_LIBRARIES})
  foreach(used IN LISTS ARG_AREAS)
    target_link_libraries(zt_${area} PUBLIC zt_${used})
  endforeach()

  # Installed libraries.
  set(shared zentrel_${area})
  set(static zentrel_${area}_static)
  add_library(${shared} SHARED $<TARGET_OBJECTS:${objects}>)
  add_library(${static} STATIC $<TARGET_OBJECTS:${objects}>)
  set_target_properties(${shared} PROPERTIES OUTPUT_NAME zentrel-${area} EXPORT_NAME ${area}
    VERSION ${PROJECT_VERSION} SOVERSION ${ZT_SOVERSION})
  set_target_properties(${static} PROPERTIES OUTPUT_NAME zentrel-${area} EXPORT_NAME ${area}_static)
  foreach(lib ${shared} ${static})
    target_include_directories(${lib} PUBLIC
      $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
      $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
    target_compile_features(${lib} PUBLIC cxx_std_20)
    target_link_libraries(${lib} PUBLIC Threads::Threads)
  endforeach()
  foreach(used IN LISTS ARG_AREAS)
    target_link_libraries(${shared} PUBLIC zentrel_${used})
    target_link_libraries(${static} PUBLIC zentrel_${used}_static)
  endforeach()
  target_link_libraries(${shared} PRIVATE ${ARG_LIBRARIES})
  set(pc_private "")
  set(find_code "")
  foreach(dep IN LISTS ARG_LIBRARIES)
    zt_dependency_info(${dep} dep_pc dep_find dep_header_only)
    if(NOT dep_header_only)
      target_link_libraries(${static} PUBLIC $<LINK_ONLY:${dep}>)
      list(APPEND pc_private ${dep_pc})
      string(APPEND find_code "${dep_find}\n")
    endif()
  endforeach()
  add_library(ZentrelLib::${area} ALIAS ${shared})
  add_library(ZentrelLib::${area}_static ALIAS ${static})

  set_property(GLOBAL APPEND PROPERTY ZT_AREAS ${area})
  set_property(GLOBAL PROPERTY ZT_AREA_USES_${area} "${ARG_AREAS}")
  set_property(GLOBAL PROPERTY ZT_AREA_PC_PRIVATE_${area} "${pc_private}")
  set_property(GLOBAL PROPERTY ZT_AREA_FIND_${area} "${find_code}")
endfunction()
