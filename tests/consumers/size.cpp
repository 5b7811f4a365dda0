// The same through the C++ header.
#include <iostream>
#include <kvjpx.hpp>

int main(int argc, char** argv) {
  const auto file = kvjpx::document::open(argc > 1 ? argv[1] : "").value();
  const auto width = file.find("jp2h/ihdr").value().get<kvjpx::ihdr::width>().value();
  std::cout << width << " columns, " << file.output(64).value().size() << " bytes\n";
}
