// Lets every rule look at a file.
#include "check.h"

#include <algorithm>
#include <memory>

#include "rules.h"

namespace kvjpx_check {
namespace {

bool lists_jpx(const Fields& ftyp) {
  for (uint64_t at = 8; ftyp.has(at, 4); at += 4) {
    if (ftyp.u32(at) == code("jpx ") || ftyp.u32(at) == code("jpxb")) return true;
  }
  return false;
}

Profile profile_of(const File& file) {
  const Box* const box = file.child(file.root(), code("ftyp"));
  if (box == nullptr) return kJp2;
  const Fields ftyp = file.fields(*box);
  if (ftyp.u32(0) == code("jph ")) return kJph;
  return ftyp.u32(0) == code("jpx ") || lists_jpx(ftyp) ? kJpx : kJp2;
}

class Collector final : public Check::Sink {
 public:
  Collector(const File& file, Result& result)
      : file_(file), result_(result), is_known_(file.boxes().size()) {}

  void start_rule() { count_ = 0; }
  void take(const Rule& rule, const Box& box, uint64_t offset, std::string found,
            std::string expected) override {
    is_known_[box.place] = true;
    if (++count_ > kMostOfARule) {
      ++result_.more;
      return;
    }
    if (paths_ == nullptr) paths_ = std::make_unique<kvjpx::box_paths>(file_.document());
    result_.findings.push_back({&rule, offset, box.place == 0 ? "/" : paths_->path(box.handle),
                                std::move(found), std::move(expected)});
  }
  bool knows(const Box& box) const override { return is_known_[box.place]; }

 private:
  const File& file_;
  Result& result_;
  std::vector<bool> is_known_;
  uint64_t count_ = 0;
  std::unique_ptr<kvjpx::box_paths> paths_;
};

void apply(const Rule& rule, const File& file, Check& check) {
  if (file.is_bare_codestream() && rule.box_type != kAnyCodestream) return;
  const auto look = [&](const Box& box) {
    check.box = &box;
    rule.look(check);
  };
  if (rule.box_type == kTheFile || rule.box_type == kAnyCodestream) {
    look(file.root());
  } else if (rule.box_type == kEveryBox) {
    for (const Box& box : file.boxes()) look(box);
  } else {
    for (const uint32_t place : file.all(rule.box_type)) look(file.boxes()[place]);
  }
}

}  // namespace

Result check(const kvjpx::document& document, kvjpx::byte_view bytes, unsigned profile) {
  const File file(document, bytes);
  Result result;
  result.profile = profile != 0 ? static_cast<Profile>(profile) : profile_of(file);
  Collector collector(file, result);
  for (const Rule& rule : rules()) {
    if ((rule.profiles & result.profile) == 0) continue;
    collector.start_rule();
    Check one(file, result.profile, rule, collector);
    apply(rule, file, one);
  }
  std::stable_sort(result.findings.begin(), result.findings.end(),
                   [](const Finding& a, const Finding& b) { return a.offset < b.offset; });
  return result;
}

const char* name(Severity severity) {
  switch (severity) {
    case Severity::kError:
      return "error";
    case Severity::kWarning:
      return "warning";
    case Severity::kNote:
      return "note";
  }
  return "";
}

const char* name(Profile profile) {
  return profile == kJp2 ? "jp2" : profile == kJpx ? "jpx" : "jph";
}

}  // namespace kvjpx_check
