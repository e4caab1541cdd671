# The pages of docs/ as a site of plain HTML, where python3-markdown is.
find_program(QUORIX_SITE_PYTHON NAMES python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(QUORIX_SITE_PYTHON)
  execute_process(COMMAND ${QUORIX_SITE_PYTHON} -c "import markdown" RESULT_VARIABLE no_markdown ERROR_QUIET)
endif()
if(NOT QUORIX_SITE_PYTHON OR no_markdown)
  message(STATUS "No site is made of the documentation: python3-markdown is missing")
  return()
endif()

file(GLOB site_sources CONFIGURE_DEPENDS *.md docs/*.md docs/*.png docs/site/* workflow/*.md bench/*.md)
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/site/index.html
  COMMAND ${QUORIX_SITE_PYTHON} ${PROJECT_SOURCE_DIR}/tools/make_site.py ${PROJECT_BINARY_DIR}/site
  DEPENDS ${site_sources} tools/make_site.py COMMENT "Making the site of the documentation")
add_custom_target(quorix-site ALL DEPENDS ${PROJECT_BINARY_DIR}/site/index.html)
install(DIRECTORY ${PROJECT_BINARY_DIR}/site/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html COMPONENT programs)
