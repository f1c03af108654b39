# Each area of the library is compiled once into an object library (zt_<area>_objects). From those
# objects come a static library per area (zt_<area>, used by that area's tests and benchmarks, so
# they build only what they need) and the installed ZentrelLib libraries, which hold every area.
#
#   zt_add_area(<area> SOURCES <files...> [AREAS <areas used...>] [LIBRARIES <third-party targets...>])

set(ZT_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wno-missing-field-initializers)

function(zt_add_area area)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "SOURCES;AREAS;LIBRARIES")
  set(objects zt_${area}_objects)
  add_library(${objects} OBJECT ${ARG_SOURCES})
  target_include_directories(${objects}
    PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    PRIVATE ${PROJECT_SOURCE_DIR}/src)
  target_compile_options(${objects} PRIVATE ${ZT_WARNINGS})
  target_compile_definitions(${objects} PRIVATE ZT_BUILDING_LIBRARY)
  target_link_libraries(${objects} PUBLIC Threads::Threads ${ARG_LIBRARIES})
  foreach(used IN LISTS ARG_AREAS)
    # Usage requirements only (include paths, third-party headers): objects never link objects.
    target_include_directories(${objects} PRIVATE $<TARGET_PROPERTY:zt_${used}_objects,INTERFACE_INCLUDE_DIRECTORIES>)
    target_compile_definitions(${objects} PRIVATE $<TARGET_PROPERTY:zt_${used}_objects,INTERFACE_COMPILE_DEFINITIONS>)
  endforeach()

  add_library(zt_${area} STATIC $<TARGET_OBJECTS:${objects}>)
  target_include_directories(zt_${area} PUBLIC ${PROJECT_SOURCE_DIR}/include)
  target_link_libraries(zt_${area} PUBLIC Threads::Threads ${ARG_LIBRARIES})
  foreach(used IN LISTS ARG_AREAS)
    target_link_libraries(zt_${area} PUBLIC zt_${used})
  endforeach()

  set_property(GLOBAL APPEND PROPERTY ZT_AREAS ${area})
  set_property(GLOBAL APPEND PROPERTY ZT_AREA_LIBRARIES ${ARG_LIBRARIES})
endfunction()
