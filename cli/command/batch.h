#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace zqpool::cli {

/// Calls `work(i)` for i from 0 to `count` - 1 on up to `jobs` threads, and `in_order(i)` for each,
/// in rising order and on the calling thread, once its work is done. `progress` is called on the
/// calling thread with how many are done. The work must not throw.
void run_batch(std::size_t count, std::size_t jobs, const std::function<void(std::size_t)>& work,
               const std::function<void(std::size_t)>& in_order,
               const std::function<void(std::size_t)>& progress);

/// The arguments with "-" replaced by the lines of standard input (blank ones left out). Throws
/// Usage_Error for an empty argument, a second "-" or input that cannot be read.
std::vector<std::string> expand_objects(const std::vector<std::string>& arguments);

}  // namespace zqpool::cli
