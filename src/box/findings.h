// What the reader of an input met that a strict reader would refuse, and the sentences for it.
#ifndef KVJPX_BOX_FINDINGS_H_
#define KVJPX_BOX_FINDINGS_H_

#include "box/index.h"
#include "kvjpx.h"

namespace kvjpx {

void add_finding(Environment* env, BoxIndex* index, const Trouble& trouble);

// Writes a sentence on it, cut to the size; `code` is the result of a call that failed, or 0.
void describe_trouble(const Trouble& trouble, int32_t code, char* text, size_t size);

// The same on what failed in a decoding; nothing when nothing did.
void describe_decoding(const DecodeRecord& record, char* text, size_t size);

}  // namespace kvjpx

#endif  // KVJPX_BOX_FINDINGS_H_
