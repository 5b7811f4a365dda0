// Every command but decode: what it prints, writes, refuses and leaves alone.
#include <sys/stat.h>

#include <filesystem>
#include <sstream>

#include "sample_boxes.h"
#include "shell.h"

namespace kvjpx::test {
namespace {

class ToolTest : public ShellTest {
 protected:
  void SetUp() override {
    ShellTest::SetUp();
    write("a.jp2", small_jp2());
  }

  // Runs an edit of a.jp2 that must succeed, and returns the paths of the result's boxes.
  std::string paths_after(const std::string& edit) {
    output_of(edit + " -o b.jp2");
    return output_of("kvjpx ls b.jp2 | awk '{printf \"%s \", $4}'");
  }
};

TEST_F(ToolTest, ListsOffsetLengthIdentifierPathAndType) {
  EXPECT_EQ(output_of("kvjpx ls a.jp2"),
            "  0  12  #0  jP            jP\n"
            " 12  20  #1  ftyp          ftyp\n"
            " 32  60  #2  jp2h          jp2h\n"
            " 40  22  #3  jp2h/ihdr     ihdr\n"
            " 62  15  #4  jp2h/colr[0]  colr\n"
            " 77  15  #5  jp2h/colr[1]  colr\n"
            " 92  12  #6  lbl           lbl\n"
            "104  14  #7  jp2c          jp2c\n");
}

TEST_F(ToolTest, ListsSeveralFilesUnderHeadingsAndGoesOnAfterAFailure) {
  write("tiny.jp2", signature_box());
  const Result result = run("kvjpx ls tiny.jp2 missing.jp2 tiny.jp2");
  EXPECT_EQ(result.exit_code, 3);
  EXPECT_EQ(result.out,
            "tiny.jp2:\n0  12  #0  jP  jP\n\nmissing.jp2:\n\ntiny.jp2:\n0  12  #0  jP  jP\n");
  EXPECT_EQ(result.err, "kvjpx: missing.jp2: cannot open: No such file or directory\n");
}

TEST_F(ToolTest, TellsOffsetsOfAllHeaderForms) {
  const std::string empty = big_endian(5, 4) + "tiny";  // shorter than its own header
  const std::string extended = big_endian(1, 4) + "free" + big_endian(19, 8) + "abc";
  const std::string reference =
      box("asoc", box("cref", "jp2c" + box("free", "x")) + box("dtbl", std::string(2, '\0')));
  const std::string open_ended = big_endian(0, 4) + "jp2crest";
  write("forms.jp2", signature_box() + empty + extended + reference + open_ended);
  EXPECT_EQ(output_of("kvjpx ls forms.jp2 | awk '{print $1, $2, $3, $4}'"),
            "0 12 #0 jP\n12 8 #1 tiny\n20 19 #2 free\n39 39 #3 asoc\n47 21 #4 asoc/cref\n"
            "59 9 #5 asoc/cref/free\n68 10 #6 asoc/dtbl\n78 12 #7 jp2c\n");
  EXPECT_EQ(output_of("kvjpx extract forms.jp2 jp2c"), "rest");
  EXPECT_EQ(output_of("kvjpx extract forms.jp2 free"), "abc");
  EXPECT_EQ(output_of("kvjpx extract forms.jp2 tiny"), "");
}

TEST_F(ToolTest, EveryListedPathIsTaken) {
  std::string file = signature_box();
  for (const char* type : {"a/b.", "#[]%", " x  ", "    ", "\xA9\x01\x7F=", "-rf ", "a/b."}) {
    file += box(type, type);
  }
  write("odd.jp2", file);
  std::istringstream paths(output_of("kvjpx ls odd.jp2 | awk 'NR > 1 {print $4}'"));
  std::string found;
  for (std::string path; std::getline(paths, path);) {
    const std::string payload = output_of("kvjpx extract --force odd.jp2 '" + path + "'");
    EXPECT_EQ(payload.size(), 4u) << path;
    found += payload;
  }
  EXPECT_EQ(found, "a/b.#[]% x      \xA9\x01\x7F=-rf a/b.");
}

TEST_F(ToolTest, FindsBoxesByPath) {
  // The last byte of a colr box tells the two apart.
  const auto color_space = [this](const std::string& path) -> int {
    return output_of("kvjpx extract --force a.jp2 '" + path + "'").back();
  };
  EXPECT_EQ(color_space("jp2h/colr"), 16);
  EXPECT_EQ(color_space("jp2h/colr[0]"), 16);
  EXPECT_EQ(color_space("/jp2h/colr[1]"), 17);
  EXPECT_EQ(color_space("#5"), 17);
  EXPECT_EQ(color_space("#2/colr[1]"), 17);
  EXPECT_EQ(output_of("kvjpx extract a.jp2 'lbl '"), output_of("kvjpx extract a.jp2 lbl"));

  refuses({{"extract a.jp2 jp2h/cdef", 5, "a.jp2: jp2h/cdef: there is no box 'cdef' in jp2h"},
           {"extract a.jp2 'jp2h/colr[2]'", 5,
            "a.jp2: jp2h/colr[2]: there is no box 'colr[2]' in jp2h"},
           {"print a.jp2 '#8'", 5, "a.jp2: #8: there is no box with this identifier"},
           {"print a.jp2 'jp2h/colr[x'", 5, "a.jp2: jp2h/colr[x: 'colr[x' has no proper [index]"},
           {"print a.jp2 toolong", 5, "'toolong' is not a box type (one to four characters)"}});
}

TEST_F(ToolTest, PrintsABoxOrTheWholeFile) {
  EXPECT_EQ(output_of("kvjpx print a.jp2 lbl"), "Basic box of type lbl  length 12\n");
  const std::string all = output_of("kvjpx print a.jp2");
  EXPECT_EQ(all, output_of("kvjpx print a.jp2 /"));
  EXPECT_NE(all.find("BOX ID: 7\nBasic box of type jp2c length 14\n"), std::string::npos);
}

TEST_F(ToolTest, GetsFields) {
  EXPECT_EQ(output_of("kvjpx get a.jp2 jp2h/ihdr.HEIGHT"), "3\n");
  EXPECT_EQ(output_of("kvjpx get a.jp2 jp2h/ihdr.width"), "5\n");
  EXPECT_EQ(output_of("kvjpx get a.jp2 jp2c.DATA"), "ff4f0001ffd9\n");
  EXPECT_EQ(output_of("kvjpx get a.jp2 lbl.DATA -o -"), "Nemo");
  EXPECT_EQ(output_of("kvjpx get a.jp2 'ftyp.CL[0]'"), "1785737760\n");
  EXPECT_EQ(output_of("kvjpx get a.jp2 lbl"), "lbl.DATA=4e656d6f\n");

  refuses(
      {{"get a.jp2 jp2h/ihdr.DEPTH", 5,
        "a.jp2: jp2h/ihdr.DEPTH: no such field; the box has HEIGHT, WIDTH, NC, BPC, C, "
        "UnkC, IPR"},
       {"get a.jp2 jp2h.X", 5, "a.jp2: jp2h.X: no such field; the box has no fields"},
       {"get a.jp2 jp2h/colr.ICC", 5,
        "a.jp2: jp2h/colr[0].ICC: the box has no such field in its present state"},
       {"get a.jp2 'lbl.DATA[1]'", 5, "a.jp2: lbl.DATA[1]: the index is out of range; entries: 1"},
       {"get a.jp2 'ftyp.CL[1]'", 5, ""},
       {"get a.jp2 'ftyp.CL[1'", 5, ""},
       {"get a.jp2 lbl -o x", 2, ""}});
}

TEST_F(ToolTest, WhatGetPrintsSetTakesBack) {
  write("blank.jp2", signature_box() + box("ftyp", "xxxxxxxxjp2 ") +
                         box("jp2h", box("ihdr", std::string(14, '\1')) + srgb_box()) +
                         box("lbl ", ""));
  output_of(
      "for place in ftyp jp2h/ihdr lbl; do kvjpx get a.jp2 $place; done >fields\n"
      "set -f; IFS='\n'; kvjpx set blank.jp2 $(cat fields) -o set.jp2\n"
      "for place in ftyp jp2h/ihdr lbl; do kvjpx get set.jp2 $place; done >fields2");
  EXPECT_NE(read("fields"), "");
  EXPECT_EQ(read("fields2"), read("fields"));
}

TEST_F(ToolTest, SetsNumbersCodesAndBytes) {
  const auto value_after = [this](const std::string& field, const std::string& value) {
    output_of("kvjpx set a.jp2 \"" + field + "=" + value + "\" -o b.jp2");
    return output_of("kvjpx get b.jp2 '" + field + "'");
  };
  EXPECT_EQ(value_after("jp2h/ihdr.HEIGHT", "0x10"), "16\n");
  EXPECT_EQ(value_after("jp2h/ihdr.HEIGHT", "4294967295"), "4294967295\n");
  EXPECT_EQ(value_after("jp2h/colr.PREC", "-1"), "255\n");
  EXPECT_EQ(value_after("ftyp.BR", "jpx "), "1785755680\n");
  EXPECT_EQ(value_after("ftyp.BR", "'jpx'"), "1785755680\n");
  EXPECT_EQ(value_after("lbl.DATA", "text:a=b.c"), "613d622e63\n");
  EXPECT_EQ(value_after("lbl.DATA", "hex:00FF"), "00ff\n");
  EXPECT_EQ(value_after("lbl.DATA", "hex:"), "\n");
  EXPECT_EQ(value_after("lbl.DATA", "@a.jp2"),
            output_of("od -An -v -tx1 a.jp2 | tr -d ' \\n'; echo"));
  EXPECT_EQ(output_of("printf abc | kvjpx set a.jp2 lbl.DATA=@- -o b.jp2; kvjpx extract b.jp2 lbl"),
            "abc");
}

TEST_F(ToolTest, RefusesAllEditsWhenOneIsRefused) {
  write("b.jp2", "old");
  const Refusal refusals[] = {
      {"jp2h/ihdr.NC=0", 6, "a.jp2: jp2h/ihdr.NC: value 0 is out of range"},
      {"jp2h/ihdr.NC=ten", 6, "a.jp2: jp2h/ihdr.NC: 'ten' is not a number"},
      {"jp2h/ihdr.HEIGHT=1O0", 6, "a.jp2: jp2h/ihdr.HEIGHT: '1O0' is not a number"},
      {"jp2h/ihdr.HEIGHT=99999999999999999999", 6,
       "a.jp2: jp2h/ihdr.HEIGHT: '99999999999999999999' is not a number"},
      {"jp2h/colr.PREC=-129", 6,
       "a.jp2: jp2h/colr[0].PREC: value -129 is out of range: the field takes -128 to 255"},
      {"jp2h/ihdr.WIDTH=-1", 6,
       "a.jp2: jp2h/ihdr.WIDTH: value -1 is out of range: the field takes 0 to 4294967295"},
      {"lbl.DATA=hex:0", 6, "a.jp2: lbl.DATA: 'hex:0' is not hexadecimal"},
      {"lbl.DATA=@none", 3, "none: cannot open: No such file or directory"},
      {"lbl.DATA", 2, "'lbl.DATA' is not of the form PATH.FIELD=VALUE"},
      {"lbl=1", 5, "a.jp2: 'lbl' names no field (PATH.FIELD)"},
      {"ftyp.CL[3]=1", 5, "a.jp2: ftyp.CL[3]: the index is out of range; entries: 1"},
      {"jp2h/ihdr.HEIGHT=4294967296", 6,
       "a.jp2: jp2h/ihdr.HEIGHT: value 4294967296 is out of range: the field takes 0 to "
       "4294967295"}};
  for (const auto& [assignment, exit_code, message] : refusals) {
    refuses({{"set a.jp2 jp2h/ihdr.HEIGHT=9 '" + assignment + "' -o b.jp2", exit_code, message}});
  }
  EXPECT_EQ(read("b.jp2"), "old");
}

TEST_F(ToolTest, EditsListsByTheEntriesThatGetShows) {
  write("list.jp2", signature_box() + box("ftyp", "jpx " + big_endian(0, 4) + "aaaajp2 bbbb") +
                        box("jplh", box("opct", std::string("\2\2\7\11", 4))) +
                        box("asoc", box("nlst", big_endian(5, 4))));
  const auto list_after = [this](const std::string& assignments, const std::string& field) {
    output_of("kvjpx set list.jp2 " + assignments + " -o b.jp2");
    return output_of("kvjpx get b.jp2 " + field + " | tr '\\n' ' '");
  };
  const std::string jp2 = "1785737760 ";
  EXPECT_EQ(list_after("ftyp.BR=jp2x", "ftyp.CL"), jp2 + "1633771873 1650614882 ");
  EXPECT_EQ(list_after("'ftyp.CL[1]=1' 'ftyp.CL[3]=2' 'ftyp.CL[0]=jp2 '", "ftyp.CL"),
            jp2 + "1 1650614882 2 ");
  EXPECT_EQ(list_after("'ftyp.CL[3]=jpx '", "ftyp.CL"), jp2 + "1785755680 1633771873 1650614882 ");
  refuses({{"set list.jp2 'ftyp.CL[0]=1' -o b.jp2", 6, ""},
           {"set list.jp2 'ftyp.CL[1]=jpx ' -o b.jp2", 6, ""},
           {"set list.jp2 'ftyp.CL[3]=0x100000000' -o b.jp2", 6, ""}});

  EXPECT_EQ(list_after("'jplh/opct.Cv[1]=200'", "jplh/opct.Cv"), "7 200 ");
  EXPECT_EQ(list_after("'jplh/opct.Cv[2]=1'", "jplh/opct.Cv"), "7 9 1 ");
  refuses({{"set list.jp2 'jplh/opct.Cv[0]=256' -o b.jp2", 6, ""}});
  EXPECT_EQ(list_after("jplh/opct.OTyp=1", "jplh/opct"), "jplh/opct.OTyp=1 ");

  refuses({{"set list.jp2 'asoc/nlst.AN[1]=6' -o c.jp2", 6,
            "list.jp2: asoc/nlst.AN[1]: no entry can be appended; entries: 1"}});
}

TEST_F(ToolTest, WritesNoFileThatCouldNotBeReadAgain) {
  refuses({{"rm a.jp2 jP -o a.jp2", 6,
            "a.jp2: the result could not be read again as the same boxes; nothing is "
            "written (--force writes it all the same)"}});
  EXPECT_EQ(read("a.jp2"), small_jp2());
  output_of("kvjpx rm a.jp2 jP --force -o b.jp2");
  EXPECT_EQ(read("b.jp2"), small_jp2().substr(signature_box().size()));
}

TEST_F(ToolTest, AddsBoxes) {
  EXPECT_EQ(paths_after("kvjpx add a.jp2 xml --into /"),
            "jP ftyp jp2h jp2h/ihdr jp2h/colr[0] jp2h/colr[1] lbl jp2c xml ");
  EXPECT_EQ(paths_after("kvjpx add a.jp2 colr --into jp2h"),
            "jP ftyp jp2h jp2h/ihdr jp2h/colr[0] jp2h/colr[1] jp2h/colr[2] lbl jp2c ");
  EXPECT_EQ(paths_after("kvjpx add a.jp2 bpcc --before jp2h/ihdr"),
            "jP ftyp jp2h jp2h/bpcc jp2h/ihdr jp2h/colr[0] jp2h/colr[1] lbl jp2c ");
  EXPECT_EQ(paths_after("kvjpx add a.jp2 xml --before lbl"),
            "jP ftyp jp2h jp2h/ihdr jp2h/colr[0] jp2h/colr[1] xml lbl jp2c ");
  EXPECT_EQ(paths_after("kvjpx add a.jp2 'res ' --after '#4'"),
            "jP ftyp jp2h jp2h/ihdr jp2h/colr[0] jp2h/res jp2h/colr[1] lbl jp2c ");

  output_of("kvjpx add a.jp2 asoc --into / -o b.jp2; kvjpx add b.jp2 asoc --into asoc -o b.jp2");
  output_of("kvjpx add b.jp2 %A9ab --into asoc/asoc --payload a.jp2 -o b.jp2");
  EXPECT_EQ(output_of("kvjpx extract b.jp2 asoc/asoc/%A9ab --force"), read("a.jp2"));
}

TEST_F(ToolTest, RefusesBoxesWhereTheyMayNotStand) {
  refuses({{"add a.jp2 ihdr --into / -o b.jp2", 6,
            "a.jp2: /: new box 'ihdr': a box of this type may not stand there"},
           {"add a.jp2 xml --into lbl -o b.jp2", 6, "a.jp2: lbl: not a container of boxes"},
           {"add a.jp2 xml --after / -o b.jp2", 6, "a.jp2: /: nothing can stand beside the file"},
           {"add a.jp2 bpcc --into jp2h --payload a.jp2 -o b.jp2", 6,
            "a.jp2: jp2h: new box 'bpcc': a box of this type takes no --payload; change "
            "its fields with 'set'"},
           {"add a.jp2 xml --into nowhere -o b.jp2", 5, ""},
           {"add a.jp2 xml -o b.jp2", 2, ""},
           {"add a.jp2 xml --into / --after lbl -o b.jp2", 2, ""},
           {"add a.jp2 toolong --into / -o b.jp2", 2, ""}});
  EXPECT_FALSE(std::filesystem::exists("b.jp2"));
}

TEST_F(ToolTest, RemovesBoxes) {
  EXPECT_EQ(paths_after("kvjpx rm a.jp2 lbl"),
            "jP ftyp jp2h jp2h/ihdr jp2h/colr[0] jp2h/colr[1] jp2c ");
  // Paths mean the file as given, so the second one is not moved up by the first.
  EXPECT_EQ(paths_after("kvjpx rm a.jp2 'jp2h/colr[0]' 'jp2h/colr[1]'"),
            "jP ftyp jp2h jp2h/ihdr lbl jp2c ");
  EXPECT_EQ(paths_after("kvjpx rm a.jp2 jp2h/ihdr jp2h '#3' jp2h"), "jP ftyp lbl jp2c ");
  refuses({{"rm a.jp2 lbl / -o c.jp2", 6, "a.jp2: /: cannot be removed"},
           {"rm a.jp2 lbl xml -o c.jp2", 5, ""}});
  EXPECT_FALSE(std::filesystem::exists("c.jp2"));
}

TEST_F(ToolTest, CopiesThroughFilesPipesAndDescriptors) {
  output_of("kvjpx copy a.jp2 -o b.jp2");
  EXPECT_EQ(read("b.jp2"), small_jp2());
  EXPECT_EQ(output_of("cat a.jp2 | kvjpx copy - -o - | cat"), small_jp2());
  EXPECT_EQ(output_of("mkfifo pipe; cat a.jp2 >pipe & kvjpx copy pipe -o /dev/stdout | cat"),
            small_jp2());
  EXPECT_EQ(output_of("cat pipe & kvjpx copy a.jp2 -o pipe; wait"), small_jp2());
}

TEST_F(ToolTest, ReplacesFilesAsAWhole) {
  output_of("chmod 640 a.jp2; ln -s a.jp2 link.jp2");
  output_of("kvjpx set link.jp2 lbl.DATA=text:Dory -o link.jp2");
  EXPECT_EQ(output_of("kvjpx extract a.jp2 lbl"), "Dory");
  EXPECT_TRUE(std::filesystem::is_symlink("link.jp2"));
  struct stat status;
  ASSERT_EQ(stat("a.jp2", &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);

  output_of("umask 027; kvjpx copy a.jp2 -o new.jp2");
  ASSERT_EQ(stat("new.jp2", &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0640u);
  EXPECT_EQ(output_of("ls -A"), "a.jp2\nlink.jp2\nnew.jp2\n");
}

TEST_F(ToolTest, FailedWritesAreToldAndLeaveTheOldFile) {
  write("old.jp2", "old");
  // A limit on file sizes stands for a full disk.
  EXPECT_EQ(output_of("(ulimit -f 0; kvjpx copy a.jp2 -o old.jp2 2>&1; echo $?) | cat"),
            "kvjpx: old.jp2: cannot write: File too large\n3\n");
  EXPECT_EQ(read("old.jp2"), "old");
  refuses({{"copy a.jp2 -o /dev/full", 3, "/dev/full: cannot write: No space left on device"},
           {"copy a.jp2 -o none/b.jp2", 3, "none/b.jp2: cannot write: No such file or directory"},
           {"copy a.jp2 -o .", 3, ""}});
  for (const char* command : {"ls a.jp2", "print a.jp2", "get a.jp2 lbl", "copy a.jp2 -o -",
                              "extract a.jp2 lbl", "--help", "ls --help", "--version"}) {
    EXPECT_EQ(run(std::string("kvjpx ") + command + " >/dev/full").exit_code, 3) << command;
    EXPECT_EQ(run(std::string("kvjpx ") + command + " >&-").exit_code, 3) << command;
  }
  EXPECT_EQ(output_of("ls -A"), "a.jp2\nold.jp2\n");
  // A reader that went away ends the program silently, by the signal, unless the caller ignores it.
  output_of("(sleep 0.2; kvjpx ls a.jp2 2>message; echo $? >code) | true");
  EXPECT_EQ(read("code") + read("message"), "141\n");
  output_of("(trap '' PIPE; sleep 0.2; kvjpx ls a.jp2 2>message; echo $? >code) | true");
  EXPECT_EQ(read("code") + read("message"),
            "3\nkvjpx: standard output: cannot write: Broken pipe\n");
}

TEST_F(ToolTest, SignalsLeaveNothingHalfDone) {
  write("large", std::string(4 << 20, 'x'));
  for (const char* signal : {"QUIT", "USR1"}) {
    run(std::string("kvjpx add a.jp2 free --into / --payload large -o new.jp2 & "
                    "until ls -A | grep -q '^.kvjpx' || ! kill -0 $!; do :; done; kill -") +
        signal + " $!; wait $!");
    EXPECT_EQ(output_of("rm -f new.jp2; ls -A"), "a.jp2\nlarge\n") << signal;
  }
}

TEST_F(ToolTest, ClosedStandardDescriptorsAreNotTakenForFiles) {
  output_of("kvjpx copy a.jp2 -o b.jp2 <&- >&-");
  EXPECT_EQ(read("b.jp2"), small_jp2());
  refuses({{"copy - -o c.jp2 <&-", 3, ""}, {"copy none -o c.jp2 2>&-", 3, ""}});
}

TEST_F(ToolTest, KeepsBinaryDataFromTerminals) {
  const auto on_terminal = [this](const std::string& line) {
    return run("script -qec '" + line + "' /dev/null </dev/null");
  };
  if (on_terminal("true").exit_code != 0) GTEST_SKIP() << "no terminal can be made here";
  const Result refused = on_terminal("kvjpx extract a.jp2 jp2c");
  EXPECT_EQ(refused.exit_code, 2);
  EXPECT_EQ(refused.out,
            "kvjpx: binary data would go to a terminal: name a file with -o, or use --force\r\n");
  EXPECT_EQ(on_terminal("kvjpx copy a.jp2 -o -").exit_code, 2);
  EXPECT_EQ(on_terminal("kvjpx copy a.jp2 -o /dev/tty").exit_code, 2);
  EXPECT_EQ(on_terminal("kvjpx extract a.jp2 lbl").out, "Nemo");
  EXPECT_NE(on_terminal("kvjpx extract a.jp2 jp2c --force").out.find("\xFF\x4F"),
            std::string::npos);
}

TEST_F(ToolTest, TerminalsGetNoControlCharactersOfTheFile) {
  write("odd.jp2", signature_box() + box("ftyp", "\x1b[2J" + std::string(4, '\0') + "jp2 ") +
                       box("lbl ", "\xC3\xA9 \xC2\x9B \x9B a\r\nb\rc"));
  const auto on_terminal = [this](const std::string& line) {
    return run("LC_ALL=C.UTF-8 script -qec '" + line + "' /dev/null </dev/null").out;
  };
  if (run("script -qec true /dev/null </dev/null").exit_code != 0) {
    GTEST_SKIP() << "no terminal can be made here";
  }
  EXPECT_NE(on_terminal("kvjpx print odd.jp2").find("Brand: \\x1b[2J\r\n"), std::string::npos);
  EXPECT_NE(output_of("kvjpx print odd.jp2").find("Brand: \x1b[2J\n"), std::string::npos);
  const std::string shown = "\xC3\xA9 \\xc2\\x9b \\x9b a\r\r\nb\\x0dc";
  EXPECT_EQ(on_terminal("kvjpx extract odd.jp2 lbl"), shown);
  EXPECT_EQ(on_terminal("kvjpx extract odd.jp2 lbl -o /dev/tty"), shown);
  EXPECT_EQ(on_terminal("kvjpx ls \"$(printf \"\\033c\")\""),
            "kvjpx: \\x1bc: cannot open: No such file or directory\r\n");
}

TEST_F(ToolTest, InputsThatShrinkOrNeverEndAreTold) {
  output_of("mkfifo pipe");
  // The program waits for the pipe with the file mapped. The library looks at the file again, and
  // what is cut later than that ends in the signal.
  for (const char* fault : {": >a.jp2", "kill -BUS $!"}) {
    write("a.jp2", small_jp2());
    const Result cut = run(std::string("kvjpx set a.jp2 lbl.DATA=@pipe -o b.jp2 & exec 3>pipe; ") +
                           "sleep 0.2; " + fault + "; exec 3>&-; wait $!");
    EXPECT_TRUE(fails(cut, 3, "a.jp2: the file was shortened while it was read")) << fault;
  }
  write("a.jp2", small_jp2());
  const Result written =
      run("kvjpx extract a.jp2 lbl -o pipe & sleep 0.2; : >a.jp2; cat pipe; wait $!");
  EXPECT_TRUE(fails(written, 3, "pipe: cannot write: the input was shortened meanwhile"));
  write("a.jp2", small_jp2());
  refuses({{"ls /dev/zero", 4, "/dev/zero: not a JPX: no signature box"},
           {"set a.jp2 lbl.DATA=@/dev/zero -o b.jp2", 3,
            "/dev/zero: does not end within 16 MiB; a file may be larger"}});
  EXPECT_FALSE(std::filesystem::exists("b.jp2"));
}

TEST_F(ToolTest, EditsLoseNothingUnlessForced) {
  write("left_out.jp2", small_jp2() + image_header_box());
  write("longer.jp2", jp2_file(box("colr", bytes({5, 0, 0}) + "1234")));
  for (const auto& [name, message] :
       {std::pair("left_out.jp2", "boxes that are left out would be lost"),
        std::pair("longer.jp2", "jp2h/colr: 4 bytes of the content would be lost")}) {
    const std::string file = name;
    for (const std::string& edit : {"copy " + file, "set " + file + " jp2h/ihdr.HEIGHT=9",
                                    "add " + file + " xml --into /", "rm " + file + " ftyp"}) {
      const Result refused = run("kvjpx " + edit + " -o b.jp2");
      EXPECT_EQ(refused.exit_code, 6) << edit;
      EXPECT_NE(refused.err.find(std::string("kvjpx: ") + name + ": " + message +
                                 "; nothing is written (--force writes it all the same)\n"),
                std::string::npos)
          << refused.err;
      EXPECT_FALSE(std::filesystem::exists("b.jp2")) << edit;
      EXPECT_EQ(run("kvjpx " + edit + " --force -o c.jp2").exit_code, 0) << edit;
    }
  }
  // The reader keeps one of two equal brands.
  write("twice.jp2", signature_box() + box("ftyp", "jp2 " + std::string(4, '\0') + "jp2 jp2 "));
  output_of("kvjpx copy twice.jp2 -o d.jp2");
}

TEST_F(ToolTest, TellsWhyAFileIsNoJpx) {
  std::string nested;
  for (int i = 0; i < 300; ++i) nested = box("asoc", nested);
  const std::pair<std::string, std::string> files[] = {
      {"", "not a JPX: the file is empty"},
      {"jP", "not a JPX: no signature box"},
      {"\x89PNG\r\n\x1A\n", "not a JPX: no signature box"},
      {"\xFF\x4F\xFF\x51", "not a JPX: a bare JPEG 2000 codestream without boxes around it"},
      {box("jP  ", "\r\n\x87\r"), "the signature box does not hold the JPEG 2000 signature"},
      {small_jp2().substr(0, 110),
       "the file ends inside a box, or a box reaches past the end of its container"},
      {signature_box() + nested, "boxes are nested more than 256 deep"}};
  for (const auto& [bytes, reason] : files) {
    write("bad.jp2", bytes);
    refuses({{"ls bad.jp2", 4, "bad.jp2: " + reason}});
  }
  refuses({{"ls - </dev/null", 4, "standard input: not a JPX: the file is empty"},
           {"ls .", 3, ".: cannot read: Is a directory"}});
}

TEST_F(ToolTest, TellsBoxesThatAreLeftOut) {
  const std::string inner = box("jp2h", image_header_box() + box("ftyp", "") + box("free", "x"));
  write("refused.jp2", signature_box() + inner + box("lbl ", "y") + image_header_box() + "zz");
  const Result result = run("kvjpx ls refused.jp2");
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.out,
            " 0  12  #0  jP         jP\n"
            "12  47  #1  jp2h       jp2h\n"
            "20  22  #2  jp2h/ihdr  ihdr\n"
            "50   9  #4  free       free\n"
            "59   9  #5  lbl        lbl\n");
  EXPECT_EQ(
      result.err,
      "kvjpx: refused.jp2: note: the box 'ftyp' at offset 42 is not supported in jp2h: it is left "
      "out, and what follows it is taken to follow jp2h\n"
      "kvjpx: refused.jp2: note: the box 'ihdr' at offset 68 is not supported in /: it is left out "
      "with the rest of the file\n");
}

TEST_F(ToolTest, ExplainsItself) {
  const std::string help = output_of("kvjpx --help");
  for (const char* command :
       {"ls", "print", "get", "set", "add", "rm", "extract", "copy", "decode"}) {
    EXPECT_NE(help.find(std::string("\n  ") + command + " "), std::string::npos) << command;
    EXPECT_NE(output_of(std::string("kvjpx ") + command + " --help").find("Examples:"),
              std::string::npos)
        << command;
  }
  const std::string version = output_of("kvjpx --version");
  EXPECT_EQ(version.rfind("kvjpx 1.0.2\nlibkvjpx 1.0.2\nlibkvj2k ", 0), 0u);
#ifdef KVJPX_HAS_CODEC
  EXPECT_NE(version.find("OpenJPEG"), std::string::npos);
#endif
  refuses({{"frobnicate a.jp2", 2, "'frobnicate' is no command (see kvjpx --help)"},
           {"ls --frobnicate", 2, "'--frobnicate' is not expected by ls (see kvjpx --help)"},
           {"get a.jp2 ''", 2, "an argument is empty"}});
  for (const char* line : {"", "ls", "copy a.jp2", "ls --frobnicate a.jp2", "get a.jp2",
                           "decode a.jp2 -o x", "decode a.jp2 -o -"}) {
    EXPECT_EQ(run(std::string("kvjpx ") + line).exit_code, 2) << line;
  }
}

}  // namespace
}  // namespace kvjpx::test
