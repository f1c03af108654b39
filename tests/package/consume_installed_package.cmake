# Installs the built library into a scratch prefix, then builds and runs examples against it the
# way an outside project would, through find_package(ZentrelLib) and through pkg-config:
#   - worker_thread, linking every area (ZentrelLib::ZentrelLib, pkg-config zentrel);
#   - room_layout, linking geometry alone (COMPONENTS geometry, pkg-config zentrel-geometry), which
#     must load no library of another area and none of their third-party dependencies.
# Variables: BUILD_DIR, SOURCE_DIR, WORK_DIR.
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "Command failed (${status}): ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
  set(output "${out}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
file(GLOB pc_dirs ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
file(GLOB lib_dirs ${prefix}/lib*)

function(build_example name pkg)
  # CMake package.
  run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/${name} -B ${WORK_DIR}/${name}-cmake -G Ninja
      -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
  run(${CMAKE_COMMAND} --build ${WORK_DIR}/${name}-cmake)
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${lib_dirs} ${WORK_DIR}/${name}-cmake/${name})
  # pkg-config.
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dirs} pkg-config --cflags --libs ${pkg}
                  OUTPUT_VARIABLE flags RESULT_VARIABLE status OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "pkg-config does not know the installed ${pkg}.pc (looked in ${pc_dirs})")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run(c++ ${SOURCE_DIR}/examples/${name}/main.cpp ${flags} -o ${WORK_DIR}/${name}-pkg-config)
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${lib_dirs} ${WORK_DIR}/${name}-pkg-config)
endfunction()

build_example(worker_thread zentrel)
build_example(room_layout zentrel-geometry)

# What a geometry-only program loads.
foreach(program room_layout-cmake/room_layout room_layout-pkg-config)
  run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${lib_dirs} ldd ${WORK_DIR}/${program})
  set(loaded "${output}")
  if(NOT loaded MATCHES "libzentrel-geometry\\.so" OR NOT loaded MATCHES "libzentrel-platform\\.so")
    message(FATAL_ERROR "${program} does not load the geometry and platform libraries:\n${loaded}")
  endif()
  foreach(unwanted libzentrel-text libzentrel-typesetting libzentrel-filesystem libzentrel-collections
          libzentrel-operations libicu libssl libcrypto libz\\.so libfontconfig libfreetype libharfbuzz
          libcairo libpango libplist)
    if(loaded MATCHES "${unwanted}")
      message(FATAL_ERROR "${program} links geometry only, yet loads ${unwanted}:\n${loaded}")
    endif()
  endforeach()
  message(STATUS "${program} loads:\n${loaded}")
endforeach()
