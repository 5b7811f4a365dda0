# Tests of the writers of picture files. The libraries underneath serve as readers.
find_package(PNG REQUIRED)
find_package(TIFF REQUIRED COMPONENTS CXX)
find_package(JPEG REQUIRED)
find_package(ZLIB REQUIRED)

add_executable(picture_writers_test writers_test.cpp picture_files.cpp)
target_link_libraries(picture_writers_test PRIVATE kvjpx_picture_writers PNG::PNG TIFF::CXX TIFF::TIFF
                                                   JPEG::JPEG ZLIB::ZLIB GTest::gtest_main kvjpx_warnings)
gtest_discover_tests(picture_writers_test DISCOVERY_TIMEOUT 60)
