#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Support.h"
#include "agent/Registry.h"

// The worked tasks of the documentation, typed as they stand there. A block with a file's name is
// that file; in a console block, lines behind "$ " are typed and the others are what comes out,
// where "…" stands for anything that is left out.

namespace {

const std::string leftOut = "…";

/// Whether the line is the text, but for what the text leaves out.
bool matches(const std::string& line, const std::string& text) {
  std::size_t at = 0;
  std::size_t from = 0;
  for (;;) {
    const std::size_t gap = text.find(leftOut, from);
    const std::string part = text.substr(from, gap - from);
    const std::size_t found =
        from == 0 ? (line.starts_with(part) ? 0 : std::string::npos)
        : gap == std::string::npos && line.size() >= at + part.size()
            ? (line.ends_with(part) ? line.size() - part.size() : std::string::npos)
            : line.find(part, at);
    if (found == std::string::npos) return false;
    at = found + part.size();
    if (gap == std::string::npos) return at == line.size();
    from = gap + leftOut.size();
  }
}

/// The first line of the documentation that is not in the output; empty when all are, in order.
std::string missing(const std::vector<std::string>& output, const std::vector<std::string>& said) {
  std::size_t at = 0;
  bool gap = false;
  for (const std::string& text : said) {
    if (text == leftOut) {
      gap = true;
      continue;
    }
    while (gap && at < output.size() && !matches(output[at], text)) ++at;
    if (at == output.size() || !matches(output[at], text)) return text;
    ++at;
    gap = false;
  }
  if (!gap && at < output.size()) return "(nothing more, but there is) " + output[at];
  return {};
}

TEST(Documentation, theTasksWorkAsTheyStand) {
  const auto directory =
      std::filesystem::temp_directory_path() / ("velatable-tasks-" + std::to_string(getpid()));
  std::filesystem::create_directories(directory);
  const std::string endMark = "(end of command)";
  struct Typed {
    std::string command;
    std::vector<std::string> said;
  };
  std::vector<Typed> all;
  std::ofstream script(directory / "script");
  std::ofstream file;
  bool console = false;
  std::ifstream tasks(DOCS "/tasks.md");
  for (std::string line; std::getline(tasks, line);) {
    if (line.starts_with("```")) {
      console = line == "```console";
      file.close();
      const std::size_t space = line.find(' ');
      if (space != std::string::npos) file.open(directory / line.substr(space + 1));
    } else if (file.is_open()) {
      file << line << '\n';
    } else if (console && line.starts_with("$ ")) {
      all.push_back({line.substr(2), {}});
      // The mark begins a line whatever the command ended with, and leaves its exit code.
      script << all.back().command << "\nended=$?\necho\necho '" << endMark << "'\n(exit $ended)\n";
    } else if (console) {
      all.back().said.push_back(line);
    }
  }
  script.close();
  ASSERT_GT(all.size(), 30u);
  const std::string run =
      "cd " + directory.string() + " && PATH=$(dirname " VELATABLE "):$PATH sh script > out 2>&1";
  std::system(run.c_str());
  std::ifstream out(directory / "out");
  for (const Typed& typed : all) {
    std::vector<std::string> output;
    for (std::string line; std::getline(out, line) && line != endMark;) output.push_back(line);
    if (!output.empty() && output.back().empty()) output.pop_back();
    EXPECT_EQ(missing(output, typed.said), "") << "$ " << typed.command;
  }
  std::filesystem::remove_all(directory);
}

/// Expects that the page names the fields of a value between backquotes, be it of another table.
void expectNamed(const std::string& page, const Orb::Shape& shape) {
  for (const Orb::FieldShape& field : shape.fields) {
    if (field.shape->inlined) {
      expectNamed(page, *field.shape);
    } else {
      EXPECT_THAT(page, testing::HasSubstr(Orb::text("`", field.name, "`")));
    }
  }
}

TEST(Documentation, namesEveryTableWithItsFields) {
  std::ifstream in(DOCS "/events.md");
  const std::string page(std::istreambuf_iterator<char>(in), {});
  for (const auto& family : VelaAgent::families()) {
    EXPECT_THAT(page, testing::HasSubstr("`" + family.name + "`"));
    const auto table = family.make(0);
    for (const Orb::Shape& shape : {table->keyShape(), table->resultShape()}) {
      if (shape.structured()) expectNamed(page, shape);
    }
  }
}

}  // namespace
