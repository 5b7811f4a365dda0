// Whether the compiler watches all memory, block by block. Then the program's own ways of getting
// memory step aside, as they would hide the ends of blocks.
#ifndef KVJPX_TOOLS_ADDRESS_SANITIZER_H_
#define KVJPX_TOOLS_ADDRESS_SANITIZER_H_

#ifdef __SANITIZE_ADDRESS__  // gcc
#define KVJPX_ADDRESS_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)  // clang
#define KVJPX_ADDRESS_SANITIZER
#endif
#endif

#endif  // KVJPX_TOOLS_ADDRESS_SANITIZER_H_
