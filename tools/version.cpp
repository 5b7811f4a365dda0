// The versions of the program and of what it works with.
#include "version.h"

#include <dlfcn.h>

#include "kv_j2k.h"
#include "kvjpx.h"

namespace kvjpx_tool {
namespace {

std::string library_version() {
  uint32_t number = 0;
  kv_jpx_get_library_version(&number, nullptr, nullptr);
  return std::to_string(number / 1000000) + "." + std::to_string(number / 10000 % 100) + "." +
         std::to_string(number / 100 % 100);
}

std::string codec_version() {
  void* const codec = dlopen("libkvj2k.so", RTLD_LAZY | RTLD_LOCAL);
  if (!codec) return "not found";
  const auto get =
      reinterpret_cast<decltype(&kv_j2k_get_version_text)>(dlsym(codec, "kv_j2k_get_version_text"));
  std::string version = get ? get() : "version unknown";
  dlclose(codec);
  return version;
}

}  // namespace

std::string version_text() {
  return std::string("kvjpx ") + KVJPX_VERSION + "\nlibkvjpx " + library_version() + "\nlibkvj2k " +
         codec_version();
}

}  // namespace kvjpx_tool
