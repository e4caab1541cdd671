# Debian packages, a component each: cpack -G DEB in a folder configured for the prefix /usr and the
# library folder of the machine's architecture (tests/package/deb.sh does that).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME quorix)
set(CPACK_PACKAGE_CONTACT "Quorix maintainers <maintainers@quorix.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/compress_documents.cmake)
set(CPACK_COMPONENTS_ALL programs library dev data)
if(QUORIX_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()

set(about
"Quorix makes electron-density maps from MTZ map coefficients, and structure
factors, R factors and difference maps from macromolecular models.
")
string(TIMESTAMP QUORIX_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(cmake/debian/changelog.in ${PROJECT_BINARY_DIR}/debian/changelog @ONLY)

# quorix_package(COMPONENT NAME SECTION DEPENDS SYNOPSIS SENTENCE)
function(quorix_package component name section depends synopsis sentence)
  string(TOUPPER ${component} COMPONENT)
  foreach(setting NAME SECTION DEPENDS)
    string(TOLOWER ${setting} value)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_${setting} "${${value}}" PARENT_SCOPE)
  endforeach()
  set(CPACK_DEBIAN_${COMPONENT}_DESCRIPTION "${synopsis}\n${about}${sentence}" PARENT_SCOPE)
  install(FILES cmake/debian/copyright ${PROJECT_BINARY_DIR}/debian/changelog
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()

set(same "(= ${PROJECT_VERSION})")
quorix_package(programs quorix science "quorix-data ${same}"
  "crystallographic computation engine: programs"
  "This package contains the programs quorix and quorix-map.")
quorix_package(library libquorix0 libs "quorix-data ${same}"
  "crystallographic computation engine: shared library"
  "This package contains the library for programs that run the engine themselves.")
quorix_package(dev libquorix-dev libdevel "libquorix0 ${same}"
  "crystallographic computation engine: development files"
  "This package contains headers, the static library, CMake and pkg-config files.")
quorix_package(data quorix-data science ""
  "crystallographic computation engine: space groups and form factors"
  "This package contains the space-group and form-factor files.")
if(QUORIX_PYTHON)
  # The extension is for one version of the interpreter.
  math(EXPR next_python "${Python_VERSION_MINOR} + 1")
  set(python_range "python3 (>= 3.${Python_VERSION_MINOR}), python3 (<< 3.${next_python})")
  quorix_package(python python3-quorix python "quorix-data ${same}, ${python_range}, python3-numpy"
    "crystallographic computation engine: Python module"
    "This package contains the Python module, which makes maps as NumPy arrays.")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/python/postinst
      ${PROJECT_SOURCE_DIR}/cmake/debian/python/prerm)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS "python3-gemmi, python3-pandas, python3-matplotlib")
endif()
set(CPACK_DEBIAN_DATA_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_SUGGESTS "snakemake, python3")  # for the workflow

# The library's versions for dpkg-shlibdeps, and the linker's cache by trigger instead of by scripts.
file(WRITE ${PROJECT_BINARY_DIR}/debian/shlibs "libquorix 0 libquorix0 (>= ${PROJECT_VERSION})\n")
file(WRITE ${PROJECT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/shlibs
    ${PROJECT_BINARY_DIR}/debian/triggers)
# Debian's zsh looks for what packages bring in a folder of its own.
install(FILES ${QUORIX_PAGES}/zsh/site-functions/_quorix
        DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT programs EXCLUDE_FROM_ALL)
include(CPack)
