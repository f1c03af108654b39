# Installs the built library into a scratch prefix, then builds and runs an example against it the
# way an outside project would: once through find_package(ZentrelLib), once through pkg-config.
# Variables: BUILD_DIR, SOURCE_DIR, WORK_DIR.
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "Command failed (${status}): ${ARGN}\n${out}\n${err}")
  endif()
  message(STATUS "${out}")
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# CMake package.
run(${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples/worker_thread -B ${WORK_DIR}/cmake-consumer -G Ninja
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/cmake-consumer)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/lib ${WORK_DIR}/cmake-consumer/worker_thread)

# pkg-config.
file(GLOB pc_dirs ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
execute_process(COMMAND ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pc_dirs} pkg-config --cflags --libs zentrel
                OUTPUT_VARIABLE flags RESULT_VARIABLE status OUTPUT_STRIP_TRAILING_WHITESPACE)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know the installed zentrel.pc (looked in ${pc_dirs})")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
run(c++ ${SOURCE_DIR}/examples/worker_thread/main.cpp ${flags} -o ${WORK_DIR}/pkg-config-consumer)
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${prefix}/lib ${WORK_DIR}/pkg-config-consumer)
