# Writers of picture files, each of them row by row.
find_package(PNG 1.6 REQUIRED)
find_package(TIFF 4.5 REQUIRED)
find_package(JPEG REQUIRED)
find_package(ZLIB REQUIRED)

add_library(kvjpx_picture_writers STATIC
  exif_directories.cpp
  fit.cpp
  row_writer.cpp
  write_apng.cpp
  write_bmp.cpp
  write_jpeg.cpp
  write_png.cpp
  write_pnm.cpp
  write_tiff.cpp)
target_include_directories(kvjpx_picture_writers PUBLIC ${PROJECT_SOURCE_DIR}
  PRIVATE $<TARGET_PROPERTY:TIFF::TIFF,INTERFACE_INCLUDE_DIRECTORIES>)
target_link_libraries(kvjpx_picture_writers PRIVATE PNG::PNG JPEG::JPEG ZLIB::ZLIB kvjpx_warnings
                                            PUBLIC ${CMAKE_DL_LIBS})

# write_tiff.cpp loads libtiff by the name that other programs have it linked by.
get_target_property(tiff_file TIFF::TIFF IMPORTED_LOCATION_RELEASE)
if(NOT tiff_file)
  get_target_property(tiff_file TIFF::TIFF IMPORTED_LOCATION)
endif()
execute_process(COMMAND ${CMAKE_OBJDUMP} -p ${tiff_file} OUTPUT_VARIABLE tiff_header)
if(NOT tiff_header MATCHES "SONAME +([^\n ]+)")
  message(FATAL_ERROR "${tiff_file} is no shared library")
endif()
set(KVJPX_LIBTIFF ${CMAKE_MATCH_1} CACHE INTERNAL "For the dependencies of the Debian package, too")
set_source_files_properties(write_tiff.cpp PROPERTIES COMPILE_DEFINITIONS
                                                      KVJPX_LIBTIFF="${KVJPX_LIBTIFF}")
