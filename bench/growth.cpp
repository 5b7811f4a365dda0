// Shows how the costs of all loops over the public functions, and of all commands of the program,
// grow with the size of files of many shapes (see README.md here).
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "loops.h"
#include "measure.h"
#include "shapes.h"

namespace {

// Seconds an item that a large file may cost only because caches no longer hold it. Work out of
// proportion costs many times as much at the largest sizes.
constexpr double kCacheMisses = 5e-6;
// Bytes an item: what allocators and mappings round up to is no growth.
constexpr double kSmallMemory = 500;

struct Options {
  std::string program;  // empty: no commands
  std::string shape;    // parts of names; empty: all
  std::string work;
  std::vector<uint32_t> sizes = {3000, 30000, 300000};
  double tolerance = 2.5;
  unsigned seconds_limit = 20;
  bool is_brief = false;  // only what grows too much
};

const char kUsage[] =
    "kvjpx_growth [--program KVJPX] [--shape NAME] [--work NAME] [--sizes N,N,...]\n"
    "             [--tolerance X] [--limit SECONDS] [--brief]\n"
    "kvjpx_growth --write SHAPE N FILE\n"
    "kvjpx_growth --kept N\n"
    "Measures in the current folder. Exits with 1 when something grows too much.\n";

// One piece of work on one shape, at all sizes.
class Row {
 public:
  Row(const Options& options, const std::string& shape, const std::string& work)
      : options_(options), name_(work + " | " + shape) {}

  // False when a larger size would take too long.
  bool add(uint32_t count, const Cost& cost) {
    points_.push_back({count, cost});
    return !cost.is_over;
  }

  // Whether the costs of one item grow too much.
  bool show() const {
    std::string text;
    std::string marks;
    for (size_t i = 0; i < points_.size(); ++i) {
      const Point& point = points_[i];
      char words[64];
      snprintf(words, sizeof(words), "  %9.3f us %8.0f B", point.seconds() * 1e6, point.bytes());
      text += words;
      if (point.cost.exit_code != 0) marks += "  exit " + std::to_string(point.cost.exit_code);
      if (point.cost.is_over) {
        marks += "  <-- ended at " + std::to_string(options_.seconds_limit) + " s";
      } else if (i > 0) {
        marks += mark("time", points_[i - 1].seconds(), point.seconds(), kCacheMisses);
        marks += mark("memory", points_[i - 1].bytes(), point.bytes(), kSmallMemory);
      }
    }
    const bool is_marked = marks.find("<--") != std::string::npos;
    if (is_marked || !options_.is_brief) {
      printf("%-42s%s%s\n", name_.c_str(), text.c_str(), marks.c_str());
      fflush(stdout);
    }
    return is_marked;
  }

 private:
  struct Point {
    uint32_t count;
    Cost cost;
    double seconds() const { return cost.seconds / count; }
    double bytes() const { return cost.bytes / count; }
  };

  std::string mark(const char* what, double smaller, double larger, double floor) const {
    if (larger <= std::max(floor, smaller * options_.tolerance)) return "";
    char words[48];
    snprintf(words, sizeof(words), "  <-- %s x%.1f", what, larger / smaller);
    return words;
  }

  const Options& options_;
  std::string name_;
  std::vector<Point> points_;
};

struct Command {
  std::string name;
  std::vector<std::string> arguments;
};

// The last line of a listing, in words.
std::vector<std::string> last_box(const Options& options, const std::string& path) {
  std::vector<std::string> words;
  FILE* const listing =
      popen(("'" + options.program + "' ls " + path + " 2>&1 | tail -n 1").c_str(), "r");
  if (listing == nullptr) return words;
  char word[8192];
  while (fscanf(listing, "%8191s", word) == 1) words.push_back(word);
  pclose(listing);
  return words;
}

std::vector<Command> commands_for(const Options& options, const Shape& shape,
                                  const std::string& path, uint32_t count) {
  const std::vector<std::string> last = last_box(options, path);
  if (last.size() < 4) return {};
  const std::string& id = last[2];
  const std::string& place = last[3];
  const std::string out = path + ".out";
  std::vector<Command> commands = {
      {"ls", {"ls", path}},
      {"print", {"print", path}},
      {"print #id", {"print", path, id}},
      {"get", {"get", path, place}},
      {"add --into /", {"add", path, "free", "--into", "/", "-o", out}},
      {"add --after #id", {"add", path, "free", "--after", id, "-o", out}},
      {"rm PATH", {"rm", path, place, "-o", out}},
      {"rm #id", {"rm", path, id, "-o", out}},
      {"extract", {"extract", path, place, "-o", out}},
      {"copy", {"copy", path, "-o", out}},
      {"decode", {"decode", path, "-o", out, "--format", "pgm"}},
      {"decode --codestream 0",
       {"decode", path, "--codestream", "0", "-o", out, "--format", "pgm"}},
  };
  Command many_gone = {"rm #id...", {"rm", path}};
  Command many_set = {"set #id...", {"set", path}};
  // As many as a command line takes.
  const uint32_t step = 30;
  for (uint32_t i = 1; i < count / step; ++i) {
    many_gone.arguments.push_back("#" + std::to_string(i * step));
    many_set.arguments.push_back("#" + std::to_string(i * step) + ".DATA=hex:00");
  }
  for (Command* many : {&many_gone, &many_set}) {
    many->arguments.insert(many->arguments.end(), {"-o", out});
    commands.push_back(*many);
  }
  if (shape.assignment != nullptr) {
    commands.push_back({"set", {"set", path, place + "." + shape.assignment, "-o", out}});
  }
  return commands;
}

Cost run_command(const Options& options, const Command& command, const Cost& idle) {
  std::vector<std::string> words = {options.program};
  words.insert(words.end(), command.arguments.begin(), command.arguments.end());
  Cost best = measure_program(words, options.seconds_limit);
  for (double spent = best.seconds; spent < 0.1; spent += 0.02) {
    const Cost again = measure_program(words, options.seconds_limit);
    best.seconds = std::min(best.seconds, again.seconds);
    spent += again.seconds;
  }
  best.seconds = std::max(0.0, best.seconds - idle.seconds);
  best.bytes = std::max(0.0, best.bytes - idle.bytes);
  return best;
}

bool is_wanted(const std::string& name, const std::string& part) {
  return name.find(part) != std::string::npos;
}

// In a child, so that this process stays small: children are measured from its size on.
bool write_shape(const Shape& shape, uint32_t count, const std::string& path) {
  const Cost cost = measure_work(
      [&] {
        const std::string file = shape.make(count);
        std::ofstream stream(path, std::ios::binary);
        stream.write(file.data(), static_cast<std::streamsize>(file.size()));
        stream.close();
        Cost result;
        result.exit_code = stream ? 0 : 1;
        return result;
      },
      600);
  return cost.exit_code == 0 && !cost.is_over;
}

std::string path_of(const Shape& shape, uint32_t count) {
  return "growth." + std::to_string(getpid()) + "." + shape.name + "." + std::to_string(count) +
         ".jpx";
}

int check_loops(const Options& options, const Shape& shape, bool is_of_empty_file) {
  int marked = 0;
  for (const Loop& loop : all_loops()) {
    if (loop.is_of_empty_file != is_of_empty_file || !is_wanted(loop.name, options.work)) continue;
    Row row(options, is_of_empty_file ? "(fresh)" : shape.name, loop.name);
    for (const uint32_t count : options.sizes) {
      const std::string path = path_of(shape, is_of_empty_file ? options.sizes[0] : count);
      const Cost cost =
          measure_work([&] { return run_loop(loop, path, count); }, options.seconds_limit);
      if (!row.add(count, cost)) break;
    }
    marked += row.show();
  }
  return marked;
}

int check_commands(const Options& options, const Shape& shape) {
  if (options.program.empty()) return 0;
  const Cost idle = measure_program({options.program, "--version"}, options.seconds_limit);
  std::vector<std::vector<Command>> commands;  // by size
  for (const uint32_t count : options.sizes) {
    commands.push_back(commands_for(options, shape, path_of(shape, count), count));
  }
  int marked = 0;
  for (size_t i = 0; i < commands[0].size(); ++i) {
    const std::string name = "kvjpx " + commands[0][i].name;
    if (!is_wanted(name, options.work)) continue;
    if (is_wanted(name, "decode") && !is_wanted(shape.name, "codestreams")) continue;
    Row row(options, shape.name, name);
    for (size_t k = 0; k < options.sizes.size() && i < commands[k].size(); ++k) {
      if (!row.add(options.sizes[k], run_command(options, commands[k][i], idle))) break;
    }
    marked += row.show();
  }
  return marked;
}

int check(const Options& options) {
  int marked = 0;
  bool is_first = true;
  for (const Shape& shape : all_shapes()) {
    if (!is_wanted(shape.name, options.shape)) continue;
    for (const uint32_t count : options.sizes) {
      if (write_shape(shape, count, path_of(shape, count))) continue;
      fprintf(stderr, "kvjpx_growth: cannot write %s\n", path_of(shape, count).c_str());
      return 2;
    }
    marked += check_loops(options, shape, false) + check_commands(options, shape);
    if (is_first) marked += check_loops(options, shape, true);
    is_first = false;
    for (const uint32_t count : options.sizes) {
      remove(path_of(shape, count).c_str());
      remove((path_of(shape, count) + ".out").c_str());
    }
  }
  printf("%d grow more than in proportion\n", marked);
  return marked == 0 ? 0 : 1;
}

int write_one(const char* name, const char* count, const char* path) {
  for (const Shape& shape : all_shapes()) {
    if (strcmp(shape.name, name) != 0) continue;
    return write_shape(shape, static_cast<uint32_t>(strtoul(count, nullptr, 10)), path) ? 0 : 2;
  }
  fprintf(stderr, "kvjpx_growth: no shape %s; there are:", name);
  for (const Shape& shape : all_shapes()) fprintf(stderr, " %s", shape.name);
  fputs("\n", stderr);
  return 2;
}

// What keeping everything costs a load, which is to be little.
int check_kept(uint32_t count) {
  constexpr double kMost = 1.3;
  int marked = 0;
  for (const Shape& shape : all_shapes()) {
    const auto [plain, kept] = compare_loads(shape.make(count));
    const double time = kept.seconds / plain.seconds;
    const double memory = kept.bytes / plain.bytes;
    const bool is_marked = time > kMost || memory > kMost;
    marked += is_marked ? 1 : 0;
    printf("%-20s %9.3f us %8.0f B  kept: time x%.2f, memory x%.2f%s\n", shape.name,
           plain.seconds * 1e6, plain.bytes, time, memory, is_marked ? "  <--" : "");
  }
  return marked == 0 ? 0 : 1;
}

std::vector<uint32_t> parse_sizes(const char* text) {
  std::vector<uint32_t> sizes;
  for (char* rest = const_cast<char*>(text); *rest != '\0'; rest += *rest == ',') {
    const char* const begin = rest;
    sizes.push_back(static_cast<uint32_t>(strtoul(rest, &rest, 10)));
    if (rest == begin) return {};
  }
  return sizes;
}

// False when the arguments are not understood.
bool parse(int argc, char** argv, Options* options) {
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    if (word == "--brief") {
      options->is_brief = true;
      continue;
    }
    if (++i == argc) return false;
    if (word == "--program")
      options->program = argv[i];
    else if (word == "--shape")
      options->shape = argv[i];
    else if (word == "--work")
      options->work = argv[i];
    else if (word == "--sizes")
      options->sizes = parse_sizes(argv[i]);
    else if (word == "--tolerance")
      options->tolerance = strtod(argv[i], nullptr);
    else if (word == "--limit")
      options->seconds_limit = static_cast<unsigned>(strtoul(argv[i], nullptr, 10));
    else
      return false;
  }
  return !options->sizes.empty();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 5 && strcmp(argv[1], "--write") == 0) return write_one(argv[2], argv[3], argv[4]);
  if (argc == 3 && strcmp(argv[1], "--kept") == 0) {
    return check_kept(static_cast<uint32_t>(strtoul(argv[2], nullptr, 10)));
  }
  Options options;
  if (parse(argc, argv, &options)) return check(options);
  fputs(kUsage, stderr);
  return 2;
}
