// Opens, judges and writes what is edited.
#include "edit.h"

#include <unistd.h>

#include <map>

#include "box_path.h"
#include "icc_profile.h"

namespace kvjpx_tool {
namespace {

// Boxes that their container has once, or not more than once (ISO/IEC 15444-1, I.2.2 and I.5.3;
// 15444-2, M.11).
struct Rule {
  kvjpx::type container;
  kvjpx::type type;
  bool is_needed;
};
constexpr kvjpx::type kRoot{};
constexpr Rule kRules[] = {
    {kRoot, "jP", true},     {kRoot, "ftyp", true},   {kRoot, "jp2h", true},
    {kRoot, "rreq", false},  {"jp2h", "ihdr", true},  {"jp2h", "bpcc", false},
    {"jp2h", "pclr", false}, {"jp2h", "cmap", false}, {"jp2h", "cdef", false},
    {"jp2h", "res", false},  {"jpch", "ihdr", false}, {"jpch", "bpcc", false},
    {"jpch", "pclr", false}, {"jpch", "cmap", false}, {"jplh", "cgrp", false},
    {"jplh", "opct", false}, {"jplh", "cdef", false}, {"jplh", "res", false},
    {"jplh", "creg", false}, {"res", "resc", false},  {"res", "resd", false},
};

std::string quoted(kvjpx::type type) { return "'" + type.name() + "' box"; }

void judge_container(kvjpx::box box, std::set<Impossibility>& found) {
  const kvjpx::type type = box.type();
  std::map<kvjpx::type, unsigned> counts;
  for (const Rule& rule : kRules) {
    if (rule.container == type) counts[rule.type] = 0;
  }
  if (counts.empty()) return;
  for (const kvjpx::box child : box.children()) {
    if (const auto count = counts.find(child.type()); count != counts.end()) ++count->second;
  }
  for (const Rule& rule : kRules) {
    if (rule.container != type) continue;
    if (counts[rule.type] > 1) {
      found.emplace(box.id(), "there would be a second " + quoted(rule.type));
    } else if (rule.is_needed && counts[rule.type] == 0) {
      found.emplace(box.id(), "there would be no " + quoted(rule.type));
    }
  }
}

void judge_colour(kvjpx::box box, std::set<Impossibility>& found) {
  const auto method = box.get<kvjpx::colr::meth>();
  if (!method || (*method != KV_JPX_METH_RESTRICTED_ICC && *method != KV_JPX_METH_ANY_ICC)) return;
  const auto bytes = box.bytes<kvjpx::colr::icc>();
  if (!bytes || bytes->empty()) return;
  const std::string fault = IccProfile(bytes->text()).fault();
  if (!fault.empty()) found.emplace(box.id(), "its ICC bytes are no profile: " + fault);
}

// A box that was added without content is still to be filled.
void judge_resolution(kvjpx::box box, std::set<Impossibility>& found) {
  bool has_zero = false;
  bool has_other = false;
  for (const uint32_t key :
       {JPX_FIELD_RESC_VR_N, JPX_FIELD_RESC_VR_D, JPX_FIELD_RESC_HR_N, JPX_FIELD_RESC_HR_D}) {
    const auto number = box.get(key);
    if (!number) return;
    has_zero |= *number == 0;
    has_other |= *number != 0;
  }
  if (has_zero && (has_other || box.extent())) {
    found.emplace(box.id(), "a resolution has a numerator or denominator of 0");
  }
}

std::set<Impossibility> impossibilities(const kvjpx::document& file) {
  std::set<Impossibility> found;
  judge_container(file.root(), found);
  for (const kvjpx::type container :
       {kvjpx::type("jp2h"), kvjpx::type("jpch"), kvjpx::type("jplh"), kvjpx::type("res")}) {
    for (const kvjpx::box box : file.boxes(container)) judge_container(box, found);
  }
  for (const kvjpx::box box : file.boxes("colr")) judge_colour(box, found);
  for (const kvjpx::box box : file.boxes("resc")) judge_resolution(box, found);
  for (const kvjpx::box box : file.boxes("resd")) judge_resolution(box, found);
  return found;
}

std::string bytes_text(uint64_t count) {
  return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string sizes(uint64_t before, uint64_t after) {
  return std::to_string(before) + " -> " + bytes_text(after);
}

// Compares the file as it was loaded with what would be written, box by box.
class Comparison {
 public:
  Comparison(const OpenedFile& file, const kvjpx::document& before, const std::set<uint32_t>& moved,
             const kvjpx::document& written, std::string_view output)
      : file_(file), before_(before), paths_(before), moved_(moved), output_(output) {
    compare_content(file.document().root(), written.root());
    for (const kvjpx::box box : before.boxes()) look_for_removed(box);
  }

  const std::string& lines() const { return lines_; }

 private:
  void line(const char* what, const std::string& path, const std::string& size) {
    lines_ += std::string(what) + "  " + path + "  " + size + "\n";
    ++reasons_;
  }

  kvjpx::box now(kvjpx::box old) const { return file_.document().by_id(old.id()); }
  void look_for_removed(kvjpx::box old) {
    const kvjpx::box container = now(old.parent());
    if (now(old) || !container || !container.is_container()) return;
    const kvjpx::extent place = old.extent().value();
    line("removed", paths_.path(old), bytes_text(place.end() - place.offset));
  }

  // What the boxes of the context have become in the output. False: the content has not the boxes
  // that the context knows.
  bool compare_content(kvjpx::box now, kvjpx::box written) {
    kvjpx::box copy = written.first_child();
    for (const kvjpx::box child : now.children()) {
      if (!copy) return false;
      compare(child, copy);
      copy = copy.next();
    }
    return !copy;
  }

  void compare(kvjpx::box now, kvjpx::box written) {
    const kvjpx::extent place = written.extent().value();
    const uint64_t length = place.end() - place.offset;
    const kvjpx::box old = before_.by_id(now.id());
    if (!old) {
      line("added  ", now.path(), bytes_text(length));
      return;
    }
    if (moved_.count(now.id()) != 0) {
      line("moved  ", paths_.path(old) + " -> " + now.path(), bytes_text(length));
    }
    const kvjpx::extent old_place = old.extent().value();
    const std::string_view before =
        file_.bytes().substr(old_place.offset, old_place.end() - old_place.offset);
    const std::string_view after = output_.substr(place.offset, length);
    if (before == after) return;
    const size_t known = reasons_;
    if (now.is_container() && written.is_container() && compare_content(now, written)) {
      reasons_ += lost_boxes(old);
      if (reasons_ != known) return;
    }
    const bool is_same_size = before.size() == after.size();
    line("changed", now.path(),
         is_same_size ? bytes_text(difference(before, after)) + " of " + std::to_string(length)
                      : sizes(before.size(), after.size()));
  }

  size_t lost_boxes(kvjpx::box container) const {
    size_t count = 0;
    for (const kvjpx::box old : container.children()) {
      count += !now(old) || moved_.count(old.id()) != 0;
    }
    return count;
  }

  static uint64_t difference(std::string_view a, std::string_view b) {
    uint64_t count = 0;
    for (size_t i = 0; i < a.size(); ++i) count += a[i] != b[i];
    return count;
  }

  const OpenedFile& file_;
  const kvjpx::document& before_;
  kvjpx::box_paths paths_;
  const std::set<uint32_t>& moved_;
  std::string_view output_;
  std::string lines_;
  size_t reasons_ = 0;  // why bytes of containers differ, met so far
};

Target target_of(const EditRequest& request) {
  if (!request.in_place) return request.target;
  if (request.file == "-") throw Failure(kUsage, "--in-place needs a file, not standard input");
  return {request.file, request.target.force};
}

// The input, once it is known that the output can be taken.
const std::string& file_of(const EditRequest& request) {
  if (!request.dry_run) check_takes_binary(target_of(request));
  return request.file;
}

void check_written(const OpenedFile& file, const kvjpx::result<void>& result,
                   const std::string& name) {
  if (result.code() == JPX_ERR_OPEN_FILE || result.code() == JPX_ERR_FILE_IO) {
    throw system_failure(name, "cannot write");
  }
  if (!result) throw library_failure(file.label(), result.error(), kEditRefused);
}

}  // namespace

Edit::Edit(const EditRequest& request)
    : request_(request), file_(file_of(request), OpenedFile::Content::kBoxes) {
  if (!request.unchecked) known_ = impossibilities(file_.document());
}

kvjpx::box Edit::find(const std::string& path) const { return find_box(file_, path); }

std::string Edit::place(kvjpx::box box) const { return place_of(file_, box, box.path()); }

void Edit::refuse(const std::string& place, const std::string& reason) const {
  if (is_unchecked()) return;
  throw Failure(kEditRefused, place + ": " + reason + " (--unchecked does it all the same)");
}

void Edit::finish() const {
  if (!is_unchecked()) {
    for (const Impossibility& found : impossibilities(file_.document())) {
      if (known_.count(found) != 0) continue;
      refuse(place(file_.document().by_id(found.first)), found.second);
    }
  }
  if (request_.dry_run) {
    tell_changes();
  } else {
    save(file_, target_of(request_));
  }
}

void Edit::tell_changes() const {
  const kvjpx::block block = taken(file_.document().save_to_memory(), label());
  const std::string_view output = block.text();
  const kvjpx::document before = taken(kvjpx::document::read(file_.bytes()), label());
  const kvjpx::document written = taken(kvjpx::document::read(output), label());
  const Comparison comparison(file_, before, moved_, written, output);
  print_text(
      comparison.lines() + label() + ": " +
      (output == file_.bytes() ? "nothing changes" : sizes(file_.bytes().size(), output.size())) +
      "\n");
}

void save(const OpenedFile& file, const Target& target) {
  const kvjpx::document& document = file.document();
  if (target.is_stdout() && isatty(STDOUT_FILENO) == 0) {
    finish_stdout();
    check_written(file, document.save_to(STDOUT_FILENO), "standard output");
  } else if (target.is_stdout()) {
    write_result(target, taken(document.save_to_memory(), file.label(), kEditRefused).text());
  } else {
    fill_file(target.name, [&] { check_written(file, document.save(target.name), target.name); });
  }
  // Fragments of codestreams are named by their position in the file. They follow the bytes there,
  // but for those that the edit has changed or removed.
  for (const kvjpx::finding& finding : document.findings()) {
    if (finding.kind == KV_JPX_FINDING_FRAGMENT) {
      report(file.label() + ": note: " + finding.text);
    }
  }
}

}  // namespace kvjpx_tool
