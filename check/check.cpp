// Lets every rule look at a file.
#include "check.h"

#include <algorithm>
#include <memory>

#include "rules.h"

namespace kvjpx_check {
namespace {

// JPM (ISO/IEC 15444-6) and Motion JPEG 2000 (15444-3).
bool is_of_another_part(uint32_t brand) {
  return brand == code("jpm ") || brand == code("mjp2") || brand == code("mj2s");
}

Profile profile_of(const File& file) {
  const Box* const box = file.child(file.root(), code("ftyp"));
  if (box == nullptr) return kJp2;
  const Fields ftyp = file.fields(*box);
  const uint32_t brand = ftyp.u32(0);
  if (brand == code("jph ")) return kJph;
  if (brand == code("jpx ") || file.is_listed(code("jpx ")) || file.is_listed(code("jpxb"))) {
    return kJpx;
  }
  return is_of_another_part(brand) && !file.is_listed(code("jp2 ")) ? kOther : kJp2;
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
    // What is in boxes of other parts, readers of JP2 never see.
    if (check.profile == kJp2 && !box.is_in_part_1) return;
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
  return profile == kJp2 ? "jp2" : profile == kJpx ? "jpx" : profile == kJph ? "jph" : "other";
}

}  // namespace kvjpx_check
