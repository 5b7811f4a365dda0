# Debian packages, one a component. scripts/make_packages.sh makes them, scripts/check_packages.sh
# tries them.
# An address that stands for none; who publishes packages names their own.
set(KVJPX_MAINTAINER "libkvjpx maintainers <libkvjpx@example.org>" CACHE STRING
    "Who is named as maintainer of the packages")
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kvjpx)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${KVJPX_MAINTAINER}")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL library codec program development python)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(staged ${PROJECT_BINARY_DIR}/packaging)
string(TIMESTAMP KVJPX_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${packaging}/changelog.in ${staged}/changelog @ONLY)
execute_process(COMMAND gzip -9nf ${staged}/changelog COMMAND_ERROR_IS_FATAL ANY)

# usage: kvjpx_package(COMPONENT NAME SECTION SUMMARY TEXT)
function(kvjpx_package component name section summary text)
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_PRIORITY optional PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_DESCRIPTION "${summary}\n${text}" PARENT_SCOPE)
  install(FILES ${packaging}/copyright ${staged}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${name} COMPONENT ${component})
  if(EXISTS ${packaging}/${name}.lintian-overrides)
    install(FILES ${packaging}/${name}.lintian-overrides RENAME ${name}
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides COMPONENT ${component})
  endif()
endfunction()

kvjpx_package(library libkvjpx libs "library for JPX and JP2 files (JPEG 2000)"
"libkvjpx opens JPX and JP2 files (ISO/IEC 15444-1 and -2) as trees of boxes,
shows and changes every field of every box, writes them back without losing a
byte, and decodes their images with libkvj2k.")
kvjpx_package(codec libkvj2k libs "JPEG 2000 codec of libkvjpx, on OpenJPEG"
"libkvjpx decodes codestreams with this library. Another one of its name can
stand in its place.")
kvjpx_package(program kvjpx graphics "shows, edits, checks and decodes JPX and JP2 files"
"kvjpx lists and prints the boxes of JPEG 2000 files, changes fields, adds,
moves and removes boxes, holds files against the standard, and decodes
pictures; for one file and for archives. What it knows of files comes as a
library for other programs, too.")
kvjpx_package(development libkvjpx-dev libdevel "libkvjpx, files for development"
"Headers for C and C++, for pkg-config and for CMake.")
kvjpx_package(python python3-kvjpx python "JPX and JP2 files in Python (JPEG 2000)"
"The package kvjpx opens, inspects, edits, checks and decodes JPEG 2000 files
with libkvjpx. Pictures are arrays of numpy where that is installed.")

set(own_version "(= ${PROJECT_VERSION})")
foreach(component LIBRARY CODEC PROGRAM)
  set(CPACK_DEBIAN_${component}_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_${component}_PACKAGE_CONTROL_EXTRA ${packaging}/triggers)
endforeach()
set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libkvj2k (>= ${PROJECT_VERSION})")
# The program loads libtiff only when it writes a TIFF, so nothing in it shows that.
string(REPLACE ".so." "" tiff_package "${KVJPX_LIBTIFF}")
set(CPACK_DEBIAN_PROGRAM_PACKAGE_DEPENDS
    "libkvjpx ${own_version}, libkvj2k (>= ${PROJECT_VERSION}), ${tiff_package}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libkvjpx ${own_version}, libkvj2k ${own_version}")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "libkvjpx (>= ${PROJECT_VERSION}), libkvj2k (>= ${PROJECT_VERSION}), kvjpx (>= ${PROJECT_VERSION}), python3:any (>= 3.9)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS python3-numpy)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${packaging}/postinst ${packaging}/prerm)
include(CPack)
