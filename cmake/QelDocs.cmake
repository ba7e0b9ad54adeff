# `docs`: the API reference of the public headers (Doxygen), failing on any Doxygen warning.
find_package(Doxygen QUIET)
if(DOXYGEN_FOUND)
  set(QEL_DOCS_OUTPUT ${PROJECT_BINARY_DIR}/docs)
  configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${QEL_DOCS_OUTPUT}/Doxyfile @ONLY)
  add_custom_target(docs
    COMMAND Doxygen::doxygen ${QEL_DOCS_OUTPUT}/Doxyfile
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    COMMENT "API reference in ${QEL_DOCS_OUTPUT}/html"
    VERBATIM)
else()
  message(STATUS "Doxygen not found: no docs target (scripts/setup.sh installs it)")
endif()
