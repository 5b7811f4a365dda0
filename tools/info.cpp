// Picks what a file is from everything that is in it, and puts it into words.
#include "info.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

#include "codestreams.h"
#include "facts.h"
#include "names.h"
#include "opened_file.h"

namespace kvjpx_tool {
namespace {

using kvjpx::box;

// ---- Facts

class InfoFacts {
 public:
  explicit InfoFacts(const OpenedFile& file)
      : file_(file),
        paths_(file.document()),
        facts_(Json::object({{"file", file.label()},
                             {"size", number_fact(file.bytes().size())},
                             {"kind", file.is_codestream() ? "codestream" : "boxes"}})) {
    add_brands();
    add_image();
    for (const char* const list :
         {"colours", "resolutions", "codestreams", "layers", "metadata", "labels", "unusual"}) {
      facts_[list] = Json::array();
    }
    for (size_t place = 1; place <= paths_.size(); ++place) add_box(paths_[place]);
    if (!has_registration_) number_layers();
    for (const kvjpx::finding& finding : file.document().findings()) {
      facts_["unusual"].push_back(finding_facts(paths_, finding));
    }
    for (Codestream& codestream : codestreams_of(file)) add_codestream(codestream);
  }

  Json take_facts() { return std::move(facts_); }

 private:
  void add_brands() {
    const box type = paths_.child(file_.document().root(), "ftyp");
    if (!type) return;
    const auto brand = type.get<kvjpx::ftyp::br>();
    if (!brand) return;
    facts_["brand"] = code_text(*brand);
    const std::string name = value_name(JPX_FIELD_FTYP_BR, *brand);
    if (!name.empty()) facts_["format"] = name;
    Json& brands = facts_["compatible"] = Json::array();
    for (uint64_t i = 0; const auto code = type.get<kvjpx::ftyp::cl>(i); ++i) {
      brands.push_back(code_text(*code));
    }
  }

  void add_image() {
    const box header = paths_.child(file_.document().root(), "jp2h");
    const box image = header ? header.child("ihdr") : box();
    if (!image) return;
    const auto width = image.get<kvjpx::ihdr::width>();
    const auto height = image.get<kvjpx::ihdr::height>();
    const auto components = image.get<kvjpx::ihdr::nc>();
    const auto depth = image.get<kvjpx::ihdr::bpc>();
    if (!width || !height || !components || !depth) return;
    Json& facts =
        facts_["image"] = {{"width", *width}, {"height", *height}, {"components", *components}};
    const box depths = header.child("bpcc");
    if (*depth != KV_JPX_BPC_VARIES) {
      facts["depths"] = {value_name(JPX_FIELD_IHDR_BPC, *depth)};
    } else if (depths) {
      facts["depths"] = Json::array();
      for (uint64_t i = 0; const auto one = depths.get<kvjpx::bpcc::bpc>(i); ++i) {
        facts["depths"].push_back(value_name(JPX_FIELD_BPCC_BPC, *one));
      }
    }
    if (const box palette = header.child("pclr")) {
      const auto entries = palette.get<kvjpx::pclr::ne>();
      const auto columns = palette.get<kvjpx::pclr::npc>();
      if (entries && columns) facts["palette"] = {{"entries", *entries}, {"columns", *columns}};
    }
    const box channels = header.child("cdef");
    if (!channels) return;
    facts["channels"] = Json::array();
    for (uint64_t i = 0; const auto type = channels.get<kvjpx::cdef::typ>(i); ++i) {
      facts["channels"].push_back(value_name(JPX_FIELD_CDEF_Typ, *type));
    }
  }

  void add_box(const kvjpx::box_paths::item& item) {
    const auto [place, type, child_count] = item;
    if (type == kvjpx::type("colr")) add_colour(place);
    if (type == kvjpx::type("resc")) add_resolution(place, "capture");
    if (type == kvjpx::type("resd")) add_resolution(place, "display");
    if (type == kvjpx::type("jplh")) facts_["layers"].push_back(layer_facts(place));
    if (type == kvjpx::type("lbl")) add_label(place);
    if (type == kvjpx::type("xml") || type == kvjpx::type("uuid")) add_metadata(place);
  }

  void add_colour(box place) {
    const auto method = place.get<kvjpx::colr::meth>();
    Json facts = {{"path", paths_.path(place)}};
    if (!method) return;
    facts["method"] = value_name(JPX_FIELD_COLR_METH, *method);
    if (const auto value = place.get<kvjpx::colr::enumcs>()) {
      facts["colourspace"] = *value;
      facts["name"] = value_name(JPX_FIELD_COLR_EnumCS, *value);
    } else if (const auto profile = place.bytes<kvjpx::colr::icc>()) {
      facts["profile_length"] = profile->size();
      const std::string description = profile_description(profile->text());
      if (!description.empty()) facts["name"] = description;
    } else if (const auto vendor = place.bytes<kvjpx::colr::uuid>()) {
      facts["name"] = uuid_text(vendor->text());
    }
    facts_["colours"].push_back(std::move(facts));
  }

  // Samples a metre, to be had from fields of one direction; 0: none.
  template <class Numerator, class Denominator, class Exponent>
  static double resolution_of(box place) {
    const auto numerator = place.get<Numerator>();
    const auto denominator = place.get<Denominator>();
    const auto exponent = place.get<Exponent>();
    if (!numerator || !denominator || !exponent || *denominator == 0) return 0;
    return double(*numerator) / *denominator * std::pow(10, *exponent);
  }

  void add_resolution(box place, const char* kind) {
    constexpr double kMetresAnInch = 0.0254;
    using namespace kvjpx;
    const double x = resolution_of<resc::hr_n, resc::hr_d, resc::hr_e>(place);
    const double y = resolution_of<resc::vr_n, resc::vr_d, resc::vr_e>(place);
    facts_["resolutions"].push_back({{"path", paths_.path(place)},
                                     {"kind", kind},
                                     {"x_dpi", x > 0 ? Json(x * kMetresAnInch) : Json()},
                                     {"y_dpi", y > 0 ? Json(y * kMetresAnInch) : Json()}});
  }

  Json layer_facts(box place) {
    Json facts = {{"path", paths_.path(place)}};
    if (const box label = place.child("lbl")) facts["label"] = label_text(label);
    const box registration = place.child("creg");
    if (!registration) return facts;
    has_registration_ = true;
    facts["codestreams"] = Json::array();
    for (uint64_t i = 0; const auto number = registration.get<kvjpx::creg::cdn>(i); ++i) {
      facts["codestreams"].push_back(*number);
    }
    return facts;
  }

  // Without any registration, every layer has the codestream of its own number (ISO/IEC 15444-2,
  // M.11.7.7).
  void number_layers() {
    for (size_t i = 0; i < facts_["layers"].size(); ++i) facts_["layers"][i]["codestreams"] = {i};
  }

  static std::string label_text(box place) {
    const auto text = place.payload();
    return text ? std::string(text->text()) : std::string();
  }

  // An object with room for its other members: those that are in it are copied when it grows.
  Json facts_at(box place, size_t others) const {
    Json::object_t facts;
    facts.reserve(1 + others);
    facts["path"] = paths_.path(place);
    return facts;
  }

  void add_label(box place) {
    Json facts = facts_at(place, 1);
    facts["text"] = label_text(place);
    facts_["labels"].push_back(std::move(facts));
  }

  // By the labels that GML in JPEG 2000 (OGC 08-085) prescribes.
  static bool is_gml(box place) {
    const box container = place.parent();
    const box label = container.is_root() ? box() : container.first_child();
    return label && label.type() == kvjpx::type("lbl") && label_text(label).rfind("gml.", 0) == 0;
  }

  void add_metadata(box place) {
    const auto payload = place.payload();
    if (!payload) return;
    Json facts = facts_at(place, 3);
    if (place.type() == kvjpx::type("xml")) {
      facts["name"] = is_gml(place) ? "GML" : "XML";
    } else {
      const auto id = place.bytes<kvjpx::uuid::id>();
      const std::string_view name = id ? uuid_name(id->text()) : std::string_view();
      if (!name.empty()) facts["name"] = name;
      if (id) facts["uuid"] = uuid_text(id->text());
    }
    facts["length"] = number_fact(payload->size());
    facts_["metadata"].push_back(std::move(facts));
  }

  // Takes note of problems only.
  class Problems final : public kvjpx_codestream::Observer {
   public:
    Problems(Json& list, const Json& codestream) : list_(list), codestream_(codestream) {}
    bool wants_fields() const override { return false; }
    void problem(const kvjpx_codestream::Problem& problem) override {
      // What is not in the file cannot be judged.
      if (codestream_["whole"] == false) return;
      Json facts = {{"path", codestream_["path"]}, {"codestream", codestream_["number"]}};
      facts.update(problem_facts(problem));
      list_.push_back(facts);
    }

   private:
    Json& list_;
    const Json& codestream_;
  };

  void add_codestream(Codestream& codestream) {
    Json& list = facts_["codestreams"];
    Json facts = {{"number", list.size()},
                  {"path", codestream.box ? paths_.path(codestream.box) : "/"},
                  {"length", number_fact(codestream.source.size())},
                  {"whole", codestream.is_whole}};
    Problems problems(facts_["unusual"], facts);
    const kvjpx_codestream::Summary summary = walk(codestream.source, problems);
    add_summary(facts, summary);
    facts["comments"] = Json::array();
    for (const kvjpx_codestream::Comment& comment : summary.comments) {
      if (comment.is_text) facts["comments"].push_back(comment.text);
    }
    list.push_back(std::move(facts));
  }

  const OpenedFile& file_;
  kvjpx::box_paths paths_;
  bool has_registration_ = false;
  Json facts_;
};

// ---- Text

constexpr size_t kMostLines = 8;  // of each kind

std::string text_of(const Json& value) {
  return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string counted(uint64_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string joined(const Json& list) {
  std::string text;
  for (const Json& entry : list) text += (text.empty() ? "" : ", ") + text_of(entry);
  return text;
}

std::string size_of(const Json& facts, const char* width, const char* height) {
  return text_of(facts[width]) + " x " + text_of(facts[height]);
}

// Neighbours that are the same are said once: "2 of 8 bits, unsigned; 1 of 1 bits, unsigned".
std::string runs(const std::vector<std::string>& words) {
  std::string text;
  for (size_t i = 0, end = 0; i < words.size(); i = end) {
    while (end < words.size() && words[end] == words[i]) ++end;
    text += (text.empty() ? "" : "; ") + std::to_string(end - i) + " of " + words[i];
  }
  return text;
}

std::string image_text(const Json& image) {
  std::string text = size_of(image, "width", "height") + ", " +
                     counted(image["components"].get<uint64_t>(), "component");
  const std::vector<std::string> depths =
      image.value("depths", Json::array()).get<std::vector<std::string>>();
  if (depths.size() == 1) text += " of " + depths[0];
  if (depths.size() > 1) text += ": " + runs(depths);
  if (image.contains("palette")) {
    text += ", palette of " + size_of(image["palette"], "entries", "columns");
  }
  if (image.contains("channels")) text += ", channels: " + joined(image["channels"]);
  return text;
}

std::string colour_text(const Json& colour) {
  const std::string name = colour.value("name", "");
  const std::string method = colour.value("method", "");
  if (colour.contains("colourspace")) {
    return name.empty() ? "enumerated colourspace " + text_of(colour["colourspace"]) : name;
  }
  return (method.empty() ? "unknown method" : method) + (name.empty() ? "" : ": " + name);
}

std::string dpi_text(const Json& dpi) {
  constexpr double kManyDigits = 1e5;
  if (dpi.is_null()) return "unknown";
  char text[400];
  std::snprintf(text, sizeof text, dpi < kManyDigits ? "%.5g" : "%.0f", dpi.get<double>());
  return text;
}

std::string resolution_text(const Json& resolution) {
  return dpi_text(resolution["x_dpi"]) + " x " + dpi_text(resolution["y_dpi"]) + " dpi, " +
         text_of(resolution["kind"]);
}

std::string codestream_text(const Json& codestream) {
  const std::string rest = codestream["whole"] == true ? "" : ", not all of it in this file";
  if (!codestream.contains("width")) return "without a header" + rest;
  std::string text = size_of(codestream, "width", "height");
  std::vector<std::string> components;
  for (const Json& component : codestream["components"]) {
    components.push_back(text_of(component["depth"]) + " bits, " +
                         (component["signed"] == true ? "signed" : "unsigned") +
                         (component["dx"] == 1 && component["dy"] == 1
                              ? ""
                              : ", every " + size_of(component, "dx", "dy")));
  }
  text += ", " + runs(components) + "; ";
  text += codestream["tiles"] == 1 ? "1 tile"
                                   : text_of(codestream["tiles"]) + " tiles of " +
                                         size_of(codestream, "tile_width", "tile_height");
  if (codestream.contains("levels")) {
    text += ", " + counted(codestream["levels"].get<uint64_t>(), "level") + ", " +
            counted(codestream["layers"].get<uint64_t>(), "layer") + ", " +
            text_of(codestream["progression"]) + ", " + text_of(codestream["transformation"]) +
            ", colour transform " + text_of(codestream["colour_transform"]);
  }
  if (codestream["high_throughput"] == true) text += ", high-throughput";
  return text + ", " + text_of(codestream["profile"]) + rest;
}

std::string layer_text(const Json& layer) {
  const std::string label = layer.contains("label") ? "'" + text_of(layer["label"]) + "', " : "";
  const Json codestreams = layer.value("codestreams", Json::array());
  if (codestreams.empty()) return label + "no codestream registered";
  return label + (codestreams.size() == 1 ? "codestream " : "codestreams ") + joined(codestreams);
}

std::string metadata_text(const Json& metadata) {
  return (metadata.contains("name") ? text_of(metadata["name"])
                                    : "UUID " + metadata.value("uuid", "")) +
         ", " + text_of(metadata["length"]) + (metadata["length"] == 1 ? " byte" : " bytes");
}

std::string label_line(const Json& label) {
  const std::string text = label["text"];
  return "'" + text.substr(0, text.find('\n')) + "'";
}

// Of what is the same at several places the first, with their number.
Json grouped(const Json& problems) {
  Json groups = Json::array();
  for (const Json& problem : problems) {
    const auto is_same = [&](const Json& group) {
      return group["text"] == problem["text"] && group["path"] == problem["path"];
    };
    if (!groups.empty() && is_same(groups.back())) {
      groups.back()["count"] = groups.back()["count"].get<uint64_t>() + 1;
    } else {
      groups.push_back(problem);
      groups.back()["count"] = 1;
    }
  }
  return groups;
}

std::string unusual_text(const Json& problem) {
  std::string text = text_of(problem["text"]);
  if (problem.contains("codestream")) {
    text = problem_text(problem) + ", at " + text_of(problem["offset"]) + " of codestream " +
           text_of(problem["codestream"]);
  }
  const auto others = problem["count"].get<uint64_t>() - 1;
  return text + (others == 0 ? "" : " and " + counted(others, "other place"));
}

// One row an entry, with the path of its box.
void add_rows(std::vector<InfoRow>& rows, const Json& entries, const std::string& heading,
              const std::function<std::string(const Json&)>& text_of_entry) {
  for (size_t i = 0; i < std::min(entries.size(), kMostLines); ++i) {
    const std::string path = text_of(entries[i]["path"]);
    const bool has_path = path != "/" && heading != "unusual";
    rows.push_back({i == 0 ? heading : "", text_of_entry(entries[i]), has_path ? path : ""});
  }
  if (entries.size() > kMostLines) {
    rows.push_back({"", "and " + std::to_string(entries.size() - kMostLines) + " more", ""});
  }
}

}  // namespace

Json info_facts(const OpenedFile& file) { return InfoFacts(file).take_facts(); }

std::string info_kind(const Json& facts) {
  if (facts["kind"] == "codestream") return "bare codestream";
  return facts.value("format", "no brand of JPEG 2000");
}

std::vector<InfoRow> info_rows(const Json& facts) {
  std::vector<InfoRow> rows;
  if (facts.contains("image")) rows.push_back({"image", image_text(facts["image"]), ""});
  add_rows(rows, facts["colours"], "colour", colour_text);
  add_rows(rows, facts["resolutions"], "resolution", resolution_text);
  add_rows(rows, facts["codestreams"], "codestream", codestream_text);
  add_rows(rows, facts["layers"], "layer", layer_text);
  add_rows(rows, facts["metadata"], "metadata", metadata_text);
  add_rows(rows, facts["labels"], "label", label_line);
  if (facts.contains("brand")) {
    std::string brands = "'" + text_of(facts["brand"]) + "', compatible with";
    for (const Json& other : facts["compatible"]) brands += " '" + text_of(other) + "'";
    rows.push_back({"brands", brands, ""});
  }
  add_rows(rows, grouped(facts["unusual"]), "unusual", unusual_text);
  return rows;
}

}  // namespace kvjpx_tool
