# Replay programs: every fuzzer as an ordinary test, with any compiler. Each takes the seed corpora
# and its own past findings once.
include(${CMAKE_CURRENT_LIST_DIR}/targets.cmake)

function(kvjpx_add_fuzz_replays)
  foreach(name IN LISTS kvjpx_fuzzers)
    if(name MATCHES "decode|picture" AND NOT TARGET kvj2k OR name STREQUAL dump AND NOT TARGET kvjpx_facts
       OR name STREQUAL check AND NOT TARGET kvjpx_check)
      continue()
    endif()
    set(target kvjpx_fuzz_replay_${name})
    kvjpx_add_fuzz_target(${target} ${name})
    target_sources(${target} PRIVATE ${kvjpx_fuzz_dir}/replay.cpp)
    # The library's objects rather than the library: fuzzers look behind its exports.
    target_link_libraries(${target} PRIVATE kvjpx_objects $<TARGET_NAME_IF_EXISTS:kvj2k>)
    if(NOT TARGET kvj2k AND NOT KVJPX_RUN_WITHOUT_CODEC AND NOT name STREQUAL dump)
      # These fuzzers decode nothing, but the functions have to be somewhere; that of dumps has those
      # of the program, which look for a codec when they are called.
      target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/api/recording_codec.cpp)
      target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    endif()
    if(name STREQUAL check)
      target_link_libraries(${target} PRIVATE kvjpx_check)
    elseif(name STREQUAL picture)
      target_link_libraries(${target} PRIVATE kvjpx_picture kvjpx_picture_writers)
    elseif(name STREQUAL dump)
      target_link_libraries(${target} PRIVATE kvjpx_facts)
    endif()
    set(inputs ${kvjpx_fuzz_dir}/corpus)
    foreach(folder corpus-${name} findings/${name})
      if(EXISTS ${kvjpx_fuzz_dir}/${folder})
        list(APPEND inputs ${kvjpx_fuzz_dir}/${folder})
      endif()
    endforeach()
    add_test(NAME fuzz_replay_${name} COMMAND ${target} ${inputs})
  endforeach()
endfunction()
