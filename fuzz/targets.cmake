# The list of fuzzers, and what a program made of one consists of besides the library itself.
set(kvjpx_fuzz_dir ${CMAKE_CURRENT_LIST_DIR})
set(kvjpx_fuzzers load fields edit reader stream decode check)

function(kvjpx_add_fuzz_target target name)
  add_executable(${target} ${kvjpx_fuzz_dir}/${name}.cpp ${kvjpx_fuzz_dir}/allocator.cpp
                           ${kvjpx_fuzz_dir}/kept.cpp ${kvjpx_fuzz_dir}/session.cpp ${kvjpx_fuzz_dir}/target.cpp)
  target_include_directories(${target} PRIVATE ${kvjpx_fuzz_dir} ${PROJECT_SOURCE_DIR}/include
                                               ${PROJECT_SOURCE_DIR}/src)
  target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
  target_link_libraries(${target} PRIVATE kvjpx_warnings)
  if(name STREQUAL check)
    find_package(nlohmann_json REQUIRED)
    target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tools/check_report.cpp)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${target} PRIVATE nlohmann_json::nlohmann_json)
  endif()
  if(name STREQUAL decode)
    target_link_options(${target} PRIVATE -Wl,--wrap=kv_j2k_create)
  endif()
endfunction()
