# `cmake --build --preset release --target docs`: the API reference from the public headers, whose
# comments are its source (docs/api/). Fails when a public class has no comment.
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND)
  set(ZT_DOCS_OUTPUT ${PROJECT_BINARY_DIR}/docs)
  configure_file(${PROJECT_SOURCE_DIR}/docs/api/Doxyfile.in ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)
  add_custom_target(docs
    COMMAND ${CMAKE_COMMAND} -DDOXYGEN=${DOXYGEN_EXECUTABLE} -DDOXYFILE=${PROJECT_BINARY_DIR}/Doxyfile
            -DOUTPUT=${ZT_DOCS_OUTPUT} -P ${PROJECT_SOURCE_DIR}/docs/api/build_docs.cmake
    COMMENT "Generating the API reference"
    VERBATIM)
endif()
