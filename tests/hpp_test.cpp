// The C++ interface, include/kvjpx.hpp.
#include <gtest/gtest.h>

#include <cctype>

#include "kvjpx.hpp"
#include "support/bytes.h"
#include "support/files.h"

uint32_t width_without_exceptions(std::string_view file);  // in hpp_without_exceptions.cpp

namespace kvjpx::test {
namespace {

document read_file(const std::string& file) { return document::read(file).value(); }

TEST(Hpp, FieldTableIsTheLibrarys) {
  uint32_t row = 0;
  for (const field_row& here : field_table) {
    const auto info = field_info(row++);
    ASSERT_TRUE(info);
    SCOPED_TRACE(here.name);
    EXPECT_EQ(info->box_type == 0 ? "opaque" : type(info->box_type).name(), here.box);
    EXPECT_STREQ(here.name, info->name);
    std::string lower = here.name;
    for (char& c : lower) c = static_cast<char>(std::tolower(c));
    EXPECT_EQ(here.field, lower);
    EXPECT_EQ(here.key, info->key);
    EXPECT_EQ(here.width, info->width);
    EXPECT_EQ(here.access, info->access);
  }
  EXPECT_FALSE(field_info(row));
  EXPECT_EQ(fields_of("ihdr").size(), 8u);
}

TEST(Hpp, TypesHavePrintableNames) {
  static_assert(type("jp2h") == type(0x6A703268) && type("url") == type("url "));
  for (const char* name : {"jp2h", "url", "a%00%5bz", "%c0%20x", "%20"}) {
    ASSERT_TRUE(type::parse(name)) << name;
    EXPECT_EQ(type::parse(name)->name(), name);
  }
  EXPECT_EQ(type::parse("%5Dabc"), type("]abc"));
  for (const char* bad : {"", "abcde", "a%2", "%g0", "%-1", "abc%20d"}) {
    EXPECT_FALSE(type::parse(bad)) << bad;
  }
  EXPECT_FALSE(type::parse(std::string_view("%411").substr(0, 2)));
}

TEST(Hpp, FieldsAreReadChangedAndWritten) {
  document file = read_file(jp2_file(box("cmap", bytes({0, 0, 0, 0, 0, 1, 1, 2}))));
  const kvjpx::box header = file.first("ihdr");
  EXPECT_EQ(header.get<ihdr::width>().value(), 5u);
  EXPECT_TRUE(header.set<ihdr::width>(70000));
  EXPECT_EQ(header.set<ihdr::nc>(0x10001).code(), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(header.get<colr::meth>().code(), JPX_ERR_NO_SUCH_FIELD);
  EXPECT_EQ(header.get<colr::meth>().error().box_type(), type("ihdr"));

  const kvjpx::box map = file.first("cmap");
  EXPECT_TRUE(map.append_entry<cmap::pcol>(7));
  EXPECT_TRUE(map.set<cmap::mtyp>(2, 1));
  EXPECT_EQ(map.set<cmap::pcol>(0, 256).code(), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(map.set<cmap::pcol>(3, 0).code(), JPX_ERR_NO_SUCH_FIELD);
  EXPECT_EQ(map.entries<cmap::pcol>().value(), (std::vector<uint8_t>{0, 2, 7}));
  EXPECT_TRUE(map.resize<cmap::cmp>(2));
  EXPECT_EQ(map.count<cmap::mtyp>().value(), 2u);

  const kvjpx::box colour = file.first("jp2h").append("colr").value();
  EXPECT_TRUE(colour.set<colr::prec>(-2));
  EXPECT_EQ(colour.get<colr::prec>().value(), -2);
  EXPECT_EQ(colour.set<colr::prec>(128).code(), JPX_ERR_INVALID_ARGUMENT);

  const TempFile target;
  ASSERT_TRUE(file.save(target.path()));
  EXPECT_EQ(file.save_to_memory().value().text(), target.contents());
  EXPECT_EQ(document::open(target.path())->first("ihdr").get<ihdr::width>().value(), 70000u);
}

TEST(Hpp, BoxesAreAddedAndRemovedWhileTheyAreGoneOver) {
  std::string content;
  for (const char* name : {"a   ", "b   ", "c   ", "d   ", "e   ", "f   "}) content += box(name);
  document file = read_file(content);
  const kvjpx::box root = file.root();
  std::string met;
  for (kvjpx::box here : root.children()) {
    const std::string name = here.type().name();
    met += name;
    if (name == "a") met += here.add_before("new") && here.add_after("new") ? "+" : "?";
    if (name == "b") met += here.remove() ? "-" : "?";
    if (name == "d") met += here.next().remove() && here.remove() ? "-" : "?";
  }
  EXPECT_EQ(met, "a+b-cd-f");
  EXPECT_EQ(file.save_to_memory()->text(),
            box("new ") + box("a   ") + box("new ") + box("c   ") + box("f   "));
  EXPECT_FALSE(root.add_before("new"));
  for (kvjpx::box here : root.children()) EXPECT_TRUE(here.remove());
  EXPECT_EQ(root.children().begin(), root.children().end());
  EXPECT_EQ(root.append("x")->add_after("free")->type(), type("free"));

  // Among them the box with identifier 0, and in containers that go.
  document nested = read_file(box("asoc", box("asoc", box("lbl ", "1")) + box("lbl ", "2")) +
                              box("asoc", box("lbl ", "3")));
  std::string met_below;
  for (auto i = nested.boxes().begin(); i != walk_iterator(); ++i) {
    met_below += i->path() + " " + std::to_string(i.depth()) + " ";
    if (i->path() == "asoc[0]/asoc") i->remove().value();  // with its content
  }
  EXPECT_EQ(met_below, "asoc[0] 0 asoc[0]/asoc 1 asoc[0]/lbl 1 asoc[1] 0 asoc[1]/lbl 1 ");
  for (kvjpx::box label : nested.boxes("lbl")) EXPECT_TRUE(label.remove());
  EXPECT_EQ(nested.first("lbl"), kvjpx::box());
  for (kvjpx::box here : nested.boxes("asoc")) EXPECT_TRUE(here.remove());
  EXPECT_EQ(nested.count("asoc"), 0u);
}

TEST(Hpp, PathsLeadToTheirBoxes) {
  document file = read_file(jp2_file() + box("asoc") +
                            box("asoc", box("lbl ", "x") + box("a/b\xff") + box("lbl ", "y")));
  const box_paths paths(file);
  size_t place = 0;
  for (const kvjpx::box& here : file.boxes()) {
    const std::string path = here.path();
    const box_paths::item item = paths[++place];
    EXPECT_EQ(item.box, here);
    EXPECT_EQ(item.type, here.type());
    EXPECT_EQ(static_cast<std::ptrdiff_t>(item.child_count),
              std::distance(here.children().begin(), here.children().end()));
    EXPECT_EQ(paths.path(here), path);
    EXPECT_EQ(file.find(path).value(), here) << path;
    EXPECT_EQ(paths.find(path).value(), here) << path;
  }
  EXPECT_EQ(file.find("asoc[0x1]//lbl[1]/")->payload()->text(), "y");
  EXPECT_EQ(file.find("asoc[1]")->find("a%2fb%ff")->path(), "asoc[1]/a%2fb%ff");
  EXPECT_EQ(paths.size(), place);
  EXPECT_EQ(paths[0].box, file.root());
  EXPECT_EQ(file.find("/").value(), file.root());
  EXPECT_EQ(file.root().path() + paths.path(file.root()), "//");
  for (const char* bad :
       {"ihdr", "asoc[2]", "asoc[1)", "asoc[1x]", "asoc[]", "#99", "#-1", "asoc/#3", "asocs"}) {
    EXPECT_EQ(file.find(bad).code(), JPX_ERR_INVALID_ARGUMENT) << bad;
    EXPECT_EQ(paths.find(bad).error().text(), file.find(bad).error().text());
  }
  EXPECT_EQ(file.find("jp2h/none").error().text(), "jp2h/none: there is no box 'none' in jp2h");
  const kvjpx::box later = file.root().append("free").value();
  EXPECT_EQ(paths.path(later), "");
  ASSERT_TRUE(later.remove());
  EXPECT_EQ(later.path(), "");
}

TEST(Hpp, PayloadsOfAnUnchangedBoxAreNotCopied) {
  const std::string bytes = jp2_file() + box("uuid", std::string(16, 'u') + "data") +
                            xl_box("xml ", "<a/>") + open_ended_box("jp2c", "code");
  document first = read_file(bytes);
  EXPECT_TRUE(first.first("jp2c").payload()->is_owned());
  first.set_source(bytes);
  const kvjpx::box xml = first.first("xml");
  const document file = std::move(first);  // boxes stay good
  for (const char* name : {"uuid", "xml", "jp2c"}) {
    const kvjpx::box here = file.find(name).value();
    const block payload = here.payload().value();
    EXPECT_FALSE(payload.is_owned());
    EXPECT_EQ(payload.text(), here.bytes<opaque::data>()->text());
  }
  EXPECT_EQ(file.first("ihdr").source_content()->text(), image_header_box().substr(8));
  ASSERT_TRUE(xml.set_payload(std::string_view("<b/>")));
  EXPECT_EQ(xml.payload()->text(), "<b/>");
  EXPECT_EQ(xml.extent()->flags, KV_JPX_BOX_LONG_HEADER | KV_JPX_BOX_CHANGED);
}

TEST(Hpp, FailuresTellAllThatTheLibraryKnows) {
  const std::string bytes = jp2_file() + box("free") + be32(99) + "xml <a/>";
  const auto refused = document::read(bytes, reading::strict);
  EXPECT_EQ(refused.code(), JPX_ERR_READ_PAST_END);
  EXPECT_EQ(refused.error().offset(), bytes.size() - 12);
  EXPECT_EQ(refused.error().box_type(), type("xml"));
  EXPECT_NE(refused.error().text().find("at offset"), std::string::npos);
  EXPECT_THROW(refused.value(), error);
  EXPECT_EQ(width_without_exceptions(jp2_file()), 5u);
  EXPECT_DEATH(width_without_exceptions(box("free")), "kvjpx: jp2h/ihdr: there is no box 'jp2h'");

  const document kept = read_file(bytes);
  std::string kinds;
  for (const finding& found : kept.findings()) {
    kinds += std::to_string(found.kind) + " " + found.place.path() + ": " + found.text + "\n";
  }
  EXPECT_EQ(kinds, std::to_string(KV_JPX_FINDING_CUT_SHORT) + " xml: box 'xml ' at offset " +
                       std::to_string(bytes.size() - 12) +
                       " is cut short: 91 bytes of content are announced, 4 are there\n");

  // After an ending error nothing is left, and that is all that is wrong.
  const block payload = kept.first("xml").payload().value();
  EXPECT_EQ(kept.output(1).code(), JPX_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(kept.root().children().begin(), kept.root().children().end());
  EXPECT_EQ(kept.save_to_memory().code(), JPX_ERR_NO_INPUT);
}

}  // namespace
}  // namespace kvjpx::test
