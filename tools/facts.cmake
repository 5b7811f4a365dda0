# What of the program tells of files and prints nothing.
set(kvjpx_facts_sources
  arena.cpp
  check_report.cpp
  codestreams.cpp
  dump.cpp
  facts.cpp
  failure.cpp
  foreign_file.cpp
  icc_profile.cpp
  info.cpp
  input_file.cpp
  names.cpp
  opened_file.cpp
  printer.cpp
  terminal.cpp
  value.cpp)
list(TRANSFORM kvjpx_facts_sources PREPEND ${CMAKE_CURRENT_LIST_DIR}/)
