#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "tests/cli/programs/program.h"
#include "tests/support/temp_directory.h"

namespace zqpool::test {
namespace {

using testing::HasSubstr;

std::string file_text(const std::string& path) {
  std::ifstream file(std::string(ZQPOOL_SOURCE_DIR) + "/" + path);
  std::ostringstream text;
  text << file.rdbuf();
  EXPECT_FALSE(text.str().empty()) << path;
  return text.str();
}

using Words = std::vector<std::string>;

/// The words at the beginning of the lines below `title` in a help text.
Words listed_under(const std::string& help, const std::string& title) {
  std::istringstream lines(help.substr(std::min(help.find("\n" + title + ":\n"), help.size())));
  Words words;
  std::string line;
  for (int i = 0; i < 2; ++i)
    std::getline(lines, line);
  while (std::getline(lines, line) && line.rfind("  ", 0) == 0) {
    words.push_back(line.substr(2, line.find_first_of(" ,", 2) - 2));
  }
  return words;
}

struct Verb {
  std::string noun;
  std::string name;
  std::string help;
};

Words split(const std::string& text) {
  std::istringstream stream(text);
  Words words;
  for (std::string word; stream >> word;)
    words.push_back(word);
  return words;
}

/// The help of a noun or a verb; "" for the program's.
std::string help_of(const std::string& name) {
  Words arguments = split(name);
  arguments.emplace_back("--help");
  return zqpool(arguments).out;
}

/// The verbs of a noun and of the nouns within it.
void add_verbs(const std::string& noun, std::vector<Verb>& verbs) {
  const std::string help = help_of(noun);
  const std::string within = noun.empty() ? "" : noun + ' ';
  for (const std::string& verb : listed_under(help, "Verbs"))
    verbs.push_back({noun, verb, help_of(within + verb)});
  for (const std::string& inner : listed_under(help, "Nouns"))
    add_verbs(within + inner, verbs);
}

const std::vector<Verb>& all_verbs() {
  static const std::vector<Verb> verbs = [] {
    std::vector<Verb> found;
    add_verbs("", found);
    return found;
  }();
  return verbs;
}

/// The options that a help text lists.
std::set<std::string> long_options(const std::string& help) {
  static const std::regex option("\n  (-[a-z],)?(--[a-z0-9-]+)");
  std::set<std::string> options;
  for (std::sregex_iterator it(help.begin(), help.end(), option), end; it != end; ++it) {
    options.insert((*it)[2]);
  }
  return options;
}

TEST(Documentation, each_verb_has_examples_and_common_options) {
  EXPECT_GE(all_verbs().size(), 20U);
  for (const Verb& verb : all_verbs()) {
    EXPECT_THAT(verb.help, HasSubstr("\nExamples:\n  zqpool " + verb.noun + " " + verb.name));
    EXPECT_THAT(verb.help, HasSubstr("--endpoint")) << "common options are in each help";
  }
}

/// Which of `words` a text lacks.
Words missing(const Words& words, const std::string& text) {
  Words absent;
  std::copy_if(words.begin(), words.end(), std::back_inserter(absent),
               [&text](const std::string& word) { return text.find(word) == std::string::npos; });
  return absent;
}

Words all_options() {
  std::set<std::string> options;
  for (const Verb& verb : all_verbs()) {
    const std::set<std::string> more = long_options(verb.help);
    options.insert(more.begin(), more.end());
  }
  return Words(options.begin(), options.end());
}

TEST(Documentation, the_manual_has_every_verb_and_option) {
  std::string manual = file_text("docs/man/zqpool.1");
  // Without roff's escapes of hyphens.
  manual = std::regex_replace(manual, std::regex(R"(\\-)"), "-");
  Words calls;
  // The manual describes the verbs of both nouns about filesystems once.
  const std::regex filesystem("zqpool (fs|image) ");
  for (const Verb& verb : all_verbs()) {
    const std::string call = "zqpool " + verb.noun + " " + verb.name;
    calls.push_back(std::regex_replace(call, filesystem, "zqpool FS "));
  }
  EXPECT_THAT(missing(calls, manual), testing::IsEmpty());
  EXPECT_THAT(missing(all_options(), manual), testing::IsEmpty());
}

/// Checks what bash offers at the end of each line, with one shell for all of them.
void expect_bash_offers(const std::map<std::string, Words>& wanted) {
  std::string script = zqpool({"completion", "bash"}).out +
                       "complete_line() {\n"
                       "  read -ra COMP_WORDS <<<\"$1\"\n"
                       "  [[ $1 != *' ' ]] || COMP_WORDS+=('')\n"
                       "  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
                       "  _zqpool\n"
                       "  printf '%s\\t' \"$1\" \"${COMPREPLY[@]}\"\n"
                       "  printf '\\n'\n"
                       "}\n";
  for (const auto& [line, words] : wanted)
    script += "complete_line '" + line + "'\n";
  Run_Options options;
  options.input = script;
  const Run_Result result = run_program({"/bin/bash", "-u"}, options);
  EXPECT_EQ(result.err, "");
  std::map<std::string, Words> offered;
  std::istringstream rows(result.out);
  for (std::string row; std::getline(rows, row);) {
    std::istringstream fields(row);
    std::string line;
    std::getline(fields, line, '\t');
    for (std::string word; std::getline(fields, word, '\t');)
      if (!word.empty()) offered[line].push_back(word);
  }
  for (const auto& [line, words] : wanted)
    EXPECT_THAT(offered[line], testing::UnorderedElementsAreArray(words)) << line;
}

TEST(Completion, bash_offers_every_noun_verb_and_option) {
  std::map<std::string, Words> wanted;
  wanted["zqpool "] = listed_under(help_of(""), "Nouns");
  for (const Verb& verb : all_verbs()) {
    wanted["zqpool " + verb.noun + " "].push_back(verb.name);
    wanted["zqpool --jobs 2 --trace " + verb.noun + " "].push_back(verb.name);
    const std::set<std::string> options = long_options(verb.help);
    wanted["zqpool " + verb.noun + " " + verb.name + " --"].assign(options.begin(), options.end());
  }
  for (const char* const noun : {"fs", "image"}) {
    wanted[std::string("zqpool ") + noun + " "].emplace_back("snapshot");
    wanted[std::string("zqpool --jobs 2 --trace ") + noun + " "].emplace_back("snapshot");
  }
  expect_bash_offers(wanted);
}

TEST(Completion, bash_offers_the_values_of_options_and_arguments) {
  const std::string tree = ZQPOOL_SOURCE_DIR "/";
  const std::map<std::string, Words> wanted = {
      {"zqpool po", {"pool"}},
      {"zqpool pool show --output j", {"json"}},
      {"zqpool -o ", {"table", "json", "tsv"}},
      {"zqpool pool show --endpoint ", {}},
      {"zqpool pool show --endpoint pool ", {}},
      {"zqpool lun create p-1 --retention n", {"normal", "newest"}},
      {"zqpool lun export p-1 l-1 --type ", {"iSCSI", "FC"}},
      {"zqpool metadata add --type d", {"dir"}},
      {"zqpool lab fault reset_", {"reset_before_commit", "reset_after_commit"}},
      {"zqpool lab fault cut res", {}},
      {"zqpool lab scenario " + tree + "LICEN", {tree + "LICENSE"}},
      {"zqpool config show --access-key-file " + tree + "LICEN", {tree + "LICENSE"}},
      {"zqpool --host-root " + tree + "exampl", {tree + "examples"}},
      {"zqpool completion ", {"bash", "zsh", "fish"}}};
  expect_bash_offers(wanted);
}

/// Lets the shell check the script, if it is installed.
void check_syntax(const std::string& shell, const std::string& script) {
  const Temp_Directory directory;
  const std::string file = directory.write("script", script);
  const Run_Result result = run_program(
      {"/bin/sh", "-c", "! command -v \"$0\" >/dev/null || \"$0\" -n \"$1\"", shell, file});
  EXPECT_EQ(result.exit_code, 0) << shell << ": " << result.err;
}

TEST(Completion, each_script_has_valid_syntax_and_every_verb_and_option) {
  for (const std::string shell : {"bash", "zsh", "fish"}) {
    const Run_Result result = zqpool({"completion", shell});
    EXPECT_EQ(result.exit_code, 0) << result.err;
    check_syntax(shell, result.out);
    Words words;
    for (const Verb& verb : all_verbs())
      words.push_back("'zqpool " + verb.noun + " " + verb.name + "'");
    EXPECT_THAT(missing(words, result.out), testing::IsEmpty()) << shell;
    words = all_options();
    if (shell == "fish") {
      for (std::string& option : words)
        option = "-l " + option.substr(2) + " ";
    }
    EXPECT_THAT(missing(words, result.out), testing::IsEmpty()) << shell;
  }
  EXPECT_THAT(zqpool({"completion", "zsh"}).out, testing::StartsWith("#compdef zqpool\n"));
}

}  // namespace
}  // namespace zqpool::test
