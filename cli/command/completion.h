#pragma once

#include <CLI/App.hpp>

#include <string>

namespace zqpool::cli {

// The scripts with which a shell completes nouns, verbs, options and the values of options, made
// from the command tree. How values are completed follows from an option's type, see Verb.
std::string bash_completion(const CLI::App& root);
std::string zsh_completion(const CLI::App& root);
std::string fish_completion(const CLI::App& root);

}  // namespace zqpool::cli
