// A fuzzed context, and the promises that every loaded file has to keep.
#ifndef KVJPX_FUZZ_SESSION_H_
#define KVJPX_FUZZ_SESSION_H_

#include "allocator.h"
#include "frame/context.h"
#include "input.h"
#include "kvjpx.h"

namespace kvjpx::fuzz {

enum class Source { kMemory, kFile, kMapped };

// How an input wants to be treated. A JPX file starts with a zero byte, so an input that does is a
// plain file; any other starts with three bytes: the source, and the number of the allocation that
// fails (big-endian, 0: none).
struct Treatment {
  Source source = Source::kMemory;
  size_t failing_allocation = 0;
};
Treatment take_treatment(Input& input);

// A temporary file, removed at the end.
class DiskFile {
 public:
  explicit DiskFile(const Bytes& contents);
  DiskFile(const DiskFile&) = delete;
  DiskFile& operator=(const DiskFile&) = delete;
  ~DiskFile();
  const char* path() const { return path_; }
  Bytes contents() const;

 private:
  char path_[64] = "/tmp/kvjpx-fuzz-XXXXXX";
};

// Destroys its context at the end and requires then that no block is live and no descriptor was
// left open.
class Session {
 public:
  explicit Session(size_t failing_allocation = 0);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session();

  // Null when the context could not be made, which only a failing allocation explains.
  kv_jpx_context* get() const { return context_; }
  Allocator& allocator() { return allocator_; }

  int32_t load(const Bytes& file);
  int32_t load(const char* path, Source source);

  // Passes a result code on. Code 1 must come from an allocation that failed, and a context that
  // has lost its input must say so.
  int32_t judged(int32_t code) const;

 private:
  Allocator allocator_;
  int lowest_free_descriptor_;
  kv_jpx_context* context_ = nullptr;
};

// Runs action() with the environment's jump target armed; returns the code that was raised, or 0.
// Only pointers and numbers may live in the action: an error exit skips destructors.
template <class Action>
[[gnu::noinline]] int raised(Environment* env, const Action& action) {
  const int code = _setjmp(env->jump);
  if (code == 0) action();
  return code;
}

struct BoxInfo {
  uint32_t id;
  uint32_t type;
  uint32_t parent;
  uint32_t depth;  // of containers around it, the root not counted
  bool is_container;
};

// All boxes in document order, by the public calls. Requires that identifiers are unique.
std::vector<BoxInfo> walk(const Session& session);

// Whether two walks met the same types at the same depths.
bool have_same_shape(const std::vector<BoxInfo>& a, const std::vector<BoxInfo>& b);

// Requires that counting and finding boxes by type agrees with the walk.
void check_lookup(const Session& session, const std::vector<BoxInfo>& boxes);

// The most memory that loading n bytes may take: see docs/memory.md.
size_t memory_bound(size_t n);

// Walks, prints, renders, loads what was rendered and renders it again, and requires that all of it
// agrees.
void check_tree(const Session& session);

// Writes the tree over the file that it may have been loaded from.
void check_output_file(const Session& session, const DiskFile& file);

// As check_tree, for bytes that need not be a loadable file.
void check_file(const Bytes& file);

}  // namespace kvjpx::fuzz

#endif  // KVJPX_FUZZ_SESSION_H_
