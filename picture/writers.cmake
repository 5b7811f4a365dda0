# Writers of picture files, each of them row by row.
find_package(PNG 1.6 REQUIRED)
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
include(${CMAKE_CURRENT_LIST_DIR}/libtiff.cmake)
target_compile_definitions(kvjpx_picture_writers PRIVATE KVJPX_LIBTIFF="${KVJPX_LIBTIFF}")
