// What every command that edits a file does: opens it, writes the result where it was asked to, or
// tells what would change, and refuses what no reader could make sense of.
#ifndef KVJPX_TOOLS_EDIT_H_
#define KVJPX_TOOLS_EDIT_H_

#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "failure.h"
#include "opened_file.h"
#include "output.h"

namespace kvjpx_tool {

struct EditRequest {
  std::string file;
  Target target;           // of -o
  bool in_place = false;   // the target is the file itself
  bool dry_run = false;    // tell what would change
  bool unchecked = false;  // write impossible results, too
};

// What is wrong with a file as a whole or with a box of it, by the box's identifier.
using Impossibility = std::pair<uint32_t, std::string>;

class Edit {
 public:
  explicit Edit(const EditRequest& request);

  const OpenedFile& file() const { return file_; }
  const std::string& label() const { return file_.label(); }
  kvjpx::box root() const { return file_.document().root(); }
  kvjpx::box find(const std::string& path) const;
  // "file:offset: path", for messages.
  std::string place(kvjpx::box box) const;

  // What the library answered, or its refusal as a Failure.
  template <class Value>
  Value taken(kvjpx::result<Value> result, const std::string& place) const {
    return kvjpx_tool::taken(std::move(result), place, kEditRefused);
  }
  void check(const kvjpx::result<void>& result, const std::string& place) const {
    if (!result) throw library_failure(place, result.error(), kEditRefused);
  }

  bool is_unchecked() const { return request_.unchecked; }
  // Throws a Failure, unless the user has asked not to check.
  void refuse(const std::string& place, const std::string& reason) const;

  void note_moved(kvjpx::box box) { moved_.insert(box.id()); }

  // Writes the result, or tells of it; refuses one with an impossibility that was not there.
  void finish() const;

 private:
  void tell_changes() const;

  const EditRequest& request_;
  OpenedFile file_;
  std::set<Impossibility> known_;
  std::set<uint32_t> moved_;
};

// Writes the edited file to the target.
void save(const OpenedFile& file, const Target& target);

}  // namespace kvjpx_tool

#endif  // KVJPX_TOOLS_EDIT_H_
