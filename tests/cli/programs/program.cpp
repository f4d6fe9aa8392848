#include "tests/cli/programs/program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <utility>

#include "tests/support/secrets.h"

namespace zqpool::test {

namespace {

using Clock = std::chrono::steady_clock;
// Less than the minute that zqpool itself waits for a service.
constexpr std::chrono::seconds max_run{50};

int checked(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

std::pair<File_Descriptor, File_Descriptor> make_pipe() {
  int ends[2];
  checked(pipe2(ends, O_CLOEXEC), "pipe");
  return {File_Descriptor(ends[0]), File_Descriptor(ends[1])};
}

/// A file in memory that holds `text`, read from its start.
File_Descriptor memory_file(const std::string& text) {
  File_Descriptor file(checked(memfd_create("input", MFD_CLOEXEC), "memfd_create"));
  if (write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::system_error(errno, std::generic_category(), "input");
  }
  lseek(file.get(), 0, SEEK_SET);
  return file;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
  std::vector<char*> list;
  list.reserve(texts.size() + 1);
  for (std::string& text : texts)
    list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

std::vector<std::string> environment_of(const Run_Options& options) {
  std::vector<std::string> environment = options.environment;
  environment.push_back("HOME=" + options.home);
  // The environment configures sanitizers and coverage.
  for (const char* const name : {"PATH", "ASAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS",
                                 "LSAN_OPTIONS", "GCOV_PREFIX", "LLVM_PROFILE_FILE"}) {
    if (const char* const value = getenv(name)) {
      environment.push_back(std::string(name) + "=" + value);
    }
  }
  return environment;
}

}  // namespace

Program::Program(const std::vector<std::string>& arguments, const Run_Options& options) {
  auto [out_read, out_write] = make_pipe();
  auto [err_read, err_write] = make_pipe();
  const File_Descriptor input = memory_file(options.input);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input.get(), 0);
  if (options.output_file.empty()) {
    posix_spawn_file_actions_adddup2(&actions, out_write.get(), 1);
  } else {
    posix_spawn_file_actions_addopen(&actions, 1, options.output_file.c_str(), O_WRONLY, 0);
  }
  posix_spawn_file_actions_adddup2(&actions, err_write.get(), 2);
  std::string terminal_name;
  if (options.terminal) {
    terminal_ = File_Descriptor(checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "openpt"));
    checked(grantpt(terminal_.get()), "grantpt");
    checked(unlockpt(terminal_.get()), "unlockpt");
    const winsize size = {24, options.columns, 0, 0};
    checked(ioctl(terminal_.get(), TIOCSWINSZ, &size), "terminal size");
    terminal_name = ptsname(terminal_.get());
    // The first terminal that a session opens becomes its controlling terminal. Keep it open: one
    // that nobody has open hangs up.
    constexpr int number = 9;
    posix_spawn_file_actions_addopen(&actions, number, terminal_name.c_str(), O_RDWR, 0);
    if (options.output_on_terminal) posix_spawn_file_actions_adddup2(&actions, number, 1);
    if (options.error_on_terminal) posix_spawn_file_actions_adddup2(&actions, number, 2);
  }

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);

  std::vector<std::string> argument_texts = arguments;
  std::vector<std::string> environment = environment_of(options);
  const int error = posix_spawn(&pid_, arguments.front().c_str(), &actions, &attributes,
                                pointers(argument_texts).data(), pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) throw std::system_error(error, std::generic_category(), arguments.front());
  out_ = std::move(out_read);
  err_ = std::move(err_read);
}

Program::~Program() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
}

void Program::type(const std::string& text) {
  if (write(terminal_.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::system_error(errno, std::generic_category(), "terminal");
  }
}

bool Program::wait_for_terminal(const std::string& text) {
  return wait_for(result_.terminal, text);
}

bool Program::wait_for_output(const std::string& text) {
  return wait_for(result_.out, text);
}

bool Program::wait_for(const std::string& shown, const std::string& text) {
  const Clock::time_point end = Clock::now() + max_run;
  while (shown.find(text) == std::string::npos) {
    if (Clock::now() > end || !read_some(1000)) return false;
  }
  return true;
}

void Program::send(int signal_number) {
  checked(kill(pid_, signal_number), "kill");
}

void Program::close_output() {
  out_.close();
  out_ = File_Descriptor();
}

/// Waits for output and reads it; false when there can be no more.
bool Program::read_some(int milliseconds) {
  pollfd wanted[] = {
      {out_.get(), POLLIN, 0}, {err_.get(), POLLIN, 0}, {terminal_.get(), POLLIN, 0}};
  File_Descriptor* const ends[] = {&out_, &err_, &terminal_};
  std::string* const texts[] = {&result_.out, &result_.err, &result_.terminal};
  if (out_.get() < 0 && err_.get() < 0 && terminal_.get() < 0) return false;
  poll(wanted, 3, milliseconds);
  for (int i = 0; i < 3; ++i) {
    if (wanted[i].revents == 0) continue;
    char buffer[65536];
    const ssize_t n = read(wanted[i].fd, buffer, sizeof buffer);
    if (n > 0) {
      texts[i]->append(buffer, static_cast<std::size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      // A terminal whose other side was closed reads as an error.
      *ends[i] = File_Descriptor();
    }
  }
  return true;
}

Run_Result Program::wait() {
  const Clock::time_point end = Clock::now() + max_run;
  while (read_some(1000)) {
    if (Clock::now() > end) {
      kill(pid_, SIGKILL);
      break;
    }
  }
  int status = 0;
  while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
  }
  pid_ = -1;
  if (WIFEXITED(status)) result_.exit_code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result_.signal = WTERMSIG(status);
  Secrets::expect_none_in(result_.err, "standard error");
  return result_;
}

Run_Result run_program(const std::vector<std::string>& arguments, const Run_Options& options) {
  return Program(arguments, options).wait();
}

Run_Result zqpool(std::vector<std::string> arguments, const Run_Options& options) {
  arguments.insert(arguments.begin(), ZQPOOL_PROGRAM);
  return run_program(arguments, options);
}

}  // namespace zqpool::test
