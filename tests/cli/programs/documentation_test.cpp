#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "tests/cli/programs/program.h"

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

TEST(Documentation, help_lists_what_there_is) {
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
  // As it reads, without roff's escapes of hyphens.
  manual = std::regex_replace(manual, std::regex(R"(\\-)"), "-");
  Words calls;
  // What both nouns about filesystems have is described once, of an FS.
  const std::regex filesystem("zqpool (fs|image) ");
  for (const Verb& verb : all_verbs()) {
    const std::string call = "zqpool " + verb.noun + " " + verb.name;
    calls.push_back(std::regex_replace(call, filesystem, "zqpool FS "));
  }
  EXPECT_THAT(missing(calls, manual), testing::IsEmpty());
  EXPECT_THAT(missing(all_options(), manual), testing::IsEmpty());
}

Words bash_completion(const std::string& line) {
  const std::string script =
      "source " ZQPOOL_SOURCE_DIR
      "/packaging/completion/zqpool.bash\n"
      "COMP_WORDS=(" +
      line +
      ")\n"
      "[[ '" +
      line +
      "' == *' ' ]] && COMP_WORDS+=('')\n"
      "COMP_CWORD=$((${#COMP_WORDS[@]} - 1))\n"
      "_zqpool && ((${#COMPREPLY[@]})) && printf '%s\\n' \"${COMPREPLY[@]}\"\n";
  const Run_Result result = run_program({"/bin/bash", "-u", "-c", script});
  EXPECT_EQ(result.err, "");
  Words words;
  std::istringstream lines(result.out);
  for (std::string word; std::getline(lines, word);)
    words.push_back(word.substr(0, word.find(' ')));
  return words;
}

TEST(Documentation, bash_completes_every_noun_verb_and_option) {
  EXPECT_THAT(bash_completion("zqpool "),
              testing::UnorderedElementsAreArray(listed_under(zqpool({"--help"}).out, "Nouns")));
  std::map<std::string, Words> verbs_of;
  for (const Verb& verb : all_verbs())
    verbs_of[verb.noun].push_back(verb.name);
  for (auto& [noun, verbs] : verbs_of) {
    const Words inner = listed_under(help_of(noun), "Nouns");
    verbs.insert(verbs.end(), inner.begin(), inner.end());
    EXPECT_THAT(bash_completion("zqpool " + noun + " "), testing::UnorderedElementsAreArray(verbs));
    EXPECT_THAT(bash_completion("zqpool --jobs 2 --trace " + noun + " "),
                testing::UnorderedElementsAreArray(verbs));
  }
  for (const Verb& verb : all_verbs()) {
    EXPECT_THAT(bash_completion("zqpool " + verb.noun + " " + verb.name + " --"),
                testing::UnorderedElementsAreArray(long_options(verb.help)));
  }
  EXPECT_THAT(bash_completion("zqpool po"), testing::ElementsAre("pool"));
  EXPECT_THAT(bash_completion("zqpool pool show --output j"), testing::ElementsAre("json"));
  EXPECT_THAT(bash_completion("zqpool pool show --endpoint "), testing::IsEmpty());
}

TEST(Documentation, zsh_completes_every_noun_verb_and_option) {
  const std::string script = file_text("packaging/completion/_zqpool");
  EXPECT_EQ(script.rfind("#compdef zqpool\n", 0), 0U);
  Words words = all_options();
  for (const Verb& verb : all_verbs()) {
    for (const std::string& noun : split(verb.noun))
      words.push_back("'" + noun + ":");
    words.push_back("'" + verb.name + ":");
  }
  EXPECT_THAT(missing(words, script), testing::IsEmpty());
}

}  // namespace
}  // namespace zqpool::test
