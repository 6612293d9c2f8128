# The operator reference: HTML from the public header and the README, made by
# Doxygen where it is installed (`cmake --build build --target docs`, output in
# build/docs/html). An exported function without its documentation, or any
# other Doxygen warning, fails the target, so the reference cannot fall behind
# the header.
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND)
  set(NUMBRA_DOCS_DIR ${PROJECT_BINARY_DIR}/docs)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/Doxyfile.in ${NUMBRA_DOCS_DIR}/Doxyfile @ONLY)
  add_custom_target(docs
    COMMAND ${DOXYGEN_EXECUTABLE} ${NUMBRA_DOCS_DIR}/Doxyfile
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    DEPENDS ${PROJECT_SOURCE_DIR}/include/numbra.h ${PROJECT_SOURCE_DIR}/README.md
    COMMENT "Operator reference into ${NUMBRA_DOCS_DIR}/html"
    VERBATIM)
else()
  message(STATUS "Doxygen not found: no docs target")
endif()
