cmake_minimum_required(VERSION 3.25)
# Makes the three Debian packages from the built tree with cpack, unpacks them with dpkg -x into a
# scratch root, and uses that root the way a machine with the packages installed would:
#   - the package names carry the project version and the runtime package the soname;
#   - the -dev and tools packages depend on the runtime package of the same version, and the
#     runtime package on the shared libraries dpkg-shlibdeps found;
#   - zt --version answers with the project version; its man page renders; its bash completion loads;
#   - every example in examples/ builds with find_package(ZentrelLib) and runs, and two of them
#     also build with pkg-config and run.
# Variables: BUILD_DIR, SOURCE_DIR, WORK_DIR, VERSION, SOVERSION.
file(REMOVE_RECURSE ${WORK_DIR})
set(root ${WORK_DIR}/root)
file(MAKE_DIRECTORY ${root})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "Command failed (${status}): ${ARGN}\n${out}\n${err}")
  endif()
  set(output "${out}" PARENT_SCOPE)
endfunction()

run(cpack --config ${BUILD_DIR}/CPackConfig.cmake -B ${WORK_DIR}/packages)

set(runtime libzentrel${SOVERSION})
foreach(package ${runtime} libzentrel-dev zentrel-tools)
  file(GLOB deb ${WORK_DIR}/packages/${package}_${VERSION}-*.deb)
  list(LENGTH deb found)
  if(NOT found EQUAL 1)
    file(GLOB made ${WORK_DIR}/packages/*.deb)
    message(FATAL_ERROR "Expected one ${package}_${VERSION}-*.deb, cpack made: ${made}")
  endif()
  run(dpkg-deb -f ${deb} Depends)
  string(STRIP "${output}" depends)
  message(STATUS "${package} depends on: ${depends}")
  if(package STREQUAL runtime)
    if(NOT depends MATCHES "libc6" OR NOT depends MATCHES "libstdc\\+\\+6")
      message(FATAL_ERROR "${package}'s dependencies were not computed from its libraries: ${depends}")
    endif()
    run(dpkg-deb -c ${deb})
    if(NOT output MATCHES "libzentrel-platform\\.so\\.${SOVERSION}[ \n]" OR output MATCHES "\\.a\n" OR output MATCHES "\\.h\n")
      message(FATAL_ERROR "${package} should hold the shared libraries (with their soname) and nothing else:\n${output}")
    endif()
  elseif(NOT depends MATCHES "${runtime} \\(= ${VERSION}-")
    message(FATAL_ERROR "${package} does not depend on ${runtime} of its own version: ${depends}")
  endif()
  run(dpkg -x ${deb} ${root})
endforeach()

set(usr ${root}/usr)
file(GLOB lib_dirs ${usr}/lib ${usr}/lib/*-linux-gnu)
list(JOIN lib_dirs ":" library_path)
file(GLOB pc_dirs ${usr}/lib/pkgconfig ${usr}/lib/*/pkgconfig)
set(env ${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${library_path})

# The tool.
run(${env} ${usr}/bin/zt --version)
if(NOT output STREQUAL "zt ${VERSION}\n")
  message(FATAL_ERROR "zt --version printed \"${output}\", not \"zt ${VERSION}\"")
endif()
if(NOT EXISTS ${usr}/share/bash-completion/completions/zt)
  message(FATAL_ERROR "zentrel-tools has no bash completion")
endif()
run(bash -c "source '${usr}/share/bash-completion/completions/zt' && complete -p zt")
find_program(MAN man)
if(MAN)
  run(${CMAKE_COMMAND} -E env MANWIDTH=80 LANG=C.UTF-8 ${MAN} -l ${usr}/share/man/man1/zt.1)
  if(NOT output MATCHES "EXIT STATUS" OR NOT output MATCHES "zt sysinfo")
    message(FATAL_ERROR "The zt man page lacks its sections:\n${output}")
  endif()
elseif(NOT EXISTS ${usr}/share/man/man1/zt.1)
  message(FATAL_ERROR "zentrel-tools has no man page")
endif()

# Every example, through the CMake package: one project that adds each example's own CMakeLists.txt.
file(GLOB example_dirs LIST_DIRECTORIES true ${SOURCE_DIR}/examples/*)
set(examples "")
set(super "cmake_minimum_required(VERSION 3.25)\nproject(zentrel_examples CXX)\n")
foreach(dir IN LISTS example_dirs)
  if(IS_DIRECTORY ${dir} AND EXISTS ${dir}/CMakeLists.txt)
    get_filename_component(name ${dir} NAME)
    list(APPEND examples ${name})
    string(APPEND super "add_subdirectory(${dir} ${name})\n")
  endif()
endforeach()
file(WRITE ${WORK_DIR}/examples/CMakeLists.txt "${super}")
run(${CMAKE_COMMAND} -S ${WORK_DIR}/examples -B ${WORK_DIR}/examples-build -G Ninja
    -DCMAKE_PREFIX_PATH=${usr} -DCMAKE_BUILD_TYPE=Release -DCMAKE_FIND_PACKAGE_NO_SYSTEM_PACKAGE_REGISTRY=ON)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/examples-build -j 2)
# Examples that need a peer (a second device, a web server) are built and linked but not run here;
# the hand-off and fetch tests run the same code against real peers.
set(examples_needing_a_peer handoff networking_fetch)
foreach(name IN LISTS examples)
  set(executable ${WORK_DIR}/examples-build/${name}/${name})  # each example's program is named after its folder
  if(NOT EXISTS ${executable})
    message(FATAL_ERROR "The example ${name} built no program called ${name}")
  endif()
  if(name IN_LIST examples_needing_a_peer)
    message(STATUS "${name}: built (needs a peer to run)")
    continue()
  endif()
  run(${env} ${executable})
  message(STATUS "${name}: ran")
endforeach()

# Two examples through pkg-config: every area, and geometry alone.
foreach(pair "worker_thread;zentrel" "room_layout;zentrel-geometry")
  list(GET pair 0 name)
  list(GET pair 1 module)
  execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dirs} pkg-config --cflags --libs ${module}
                  OUTPUT_VARIABLE flags RESULT_VARIABLE status OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "pkg-config does not know the packaged ${module}.pc (looked in ${pc_dirs})")
  endif()
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run(c++ ${SOURCE_DIR}/examples/${name}/main.cpp ${flags} -o ${WORK_DIR}/${name}-pkg-config)
  run(${env} ${WORK_DIR}/${name}-pkg-config)
endforeach()
