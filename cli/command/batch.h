#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace zqpool::cli {

/// Calls `work(i)` for each i below `count`, on up to `jobs` threads. On the calling thread it
/// calls `in_order(i)` for each i in order, once its work is done, and `progress` with the number
/// of those done. `work` must not throw.
void run_batch(std::size_t count, std::size_t jobs, const std::function<void(std::size_t)>& work,
               const std::function<void(std::size_t)>& in_order,
               const std::function<void(std::size_t)>& progress);

/// The arguments, "-" replaced by the lines of standard input that are not empty. Throws
/// Usage_Error for an empty argument, a second "-" or input that cannot be read.
std::vector<std::string> expand_objects(const std::vector<std::string>& arguments);

}  // namespace zqpool::cli
