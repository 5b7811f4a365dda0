// The C++ interface where neither exceptions nor run-time type information are; see hpp_test.cpp.
#include "kvjpx.hpp"

#if defined(__cpp_exceptions) || defined(__cpp_rtti)
#error "this file is to be compiled without exceptions and run-time type information"
#endif

uint32_t width_without_exceptions(std::string_view file) {
  return kvjpx::document::read(file)
      .value()
      .find("jp2h/ihdr")
      .value()
      .get<kvjpx::ihdr::width>()
      .value();
}
