// Writes a whole output file.
#ifndef KVJ2K_FILE_WRITER_H_
#define KVJ2K_FILE_WRITER_H_

#include "image.h"

namespace kvj2k {

// Throws Failure (100, 102) unless every byte has reached the file (see output_file.h).
void write_file(const char* path, const Bytes& bytes);

}  // namespace kvj2k

#endif  // KVJ2K_FILE_WRITER_H_
