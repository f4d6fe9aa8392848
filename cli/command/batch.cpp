#include "cli/command/batch.h"

#include <algorithm>
#include <condition_variable>
#include <iostream>
#include <mutex>
#include <system_error>
#include <thread>

#include "cli/support/exit_code.h"

namespace zqpool::cli {

void run_batch(std::size_t count, std::size_t jobs, const std::function<void(std::size_t)>& work,
               const std::function<void(std::size_t)>& in_order,
               const std::function<void(std::size_t)>& progress) {
  if (jobs <= 1 || count <= 1) {
    for (std::size_t i = 0; i < count; ++i) {
      work(i);
      in_order(i);
      progress(i + 1);
    }
    return;
  }
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t next = 0;
  std::size_t done = 0;
  std::vector<bool> is_done(count, false);
  std::vector<std::thread> threads;
  const auto run_some = [&] {
    std::unique_lock<std::mutex> lock(mutex);
    while (next < count) {
      const std::size_t mine = next++;
      lock.unlock();
      work(mine);
      lock.lock();
      is_done[mine] = true;
      ++done;
      changed.notify_one();
    }
  };
  while (threads.size() < std::min(jobs, count)) {
    try {
      threads.emplace_back(run_some);
    } catch (const std::system_error&) {
      if (threads.empty()) throw;
      break;  // no more threads available: use those there are
    }
  }

  std::size_t reported = 0;
  std::size_t progressed = 0;
  std::unique_lock<std::mutex> lock(mutex);
  while (reported < count) {
    changed.wait(lock, [&] { return is_done[reported] || done > progressed; });
    progressed = done;
    const bool ready = is_done[reported];
    lock.unlock();
    if (ready) in_order(reported++);
    progress(progressed);
    lock.lock();
  }
  lock.unlock();
  for (std::thread& thread : threads)
    thread.join();
}

std::vector<std::string> expand_objects(const std::vector<std::string>& arguments) {
  std::vector<std::string> objects;
  bool input_read = false;
  for (const std::string& argument : arguments) {
    if (argument.empty()) throw Usage_Error("an empty argument names no object");
    if (argument != "-") {
      objects.push_back(argument);
      continue;
    }
    if (input_read) throw Usage_Error("standard input can be read only once: give one '-'");
    input_read = true;
    for (std::string line; std::getline(std::cin, line);) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      if (!line.empty()) objects.push_back(line);
    }
    if (std::cin.bad()) throw Usage_Error("standard input cannot be read");
  }
  return objects;
}

}  // namespace zqpool::cli
