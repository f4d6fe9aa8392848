#include "tests/support/service_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "tests/support/secrets.h"
#include "tests/support/test_certificates.h"

namespace zqpool::test {

namespace {

constexpr std::chrono::seconds max_start{120};

std::string content_of(const std::string& file) {
  std::ostringstream out;
  out << std::ifstream(file, std::ios::binary).rdbuf();
  return out.str();
}

/// Starts the command. Its standard output goes to `output`, its standard error to a file.
pid_t spawn_command(const std::vector<std::string>& command, int output,
                    const std::string& messages) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const File_Descriptor errors(
      ::open(messages.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  const pid_t parent = ::getpid();
  const pid_t child = ::fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) {
    // Nothing is left behind when the test dies.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(127);
    ::dup2(output, STDOUT_FILENO);
    ::dup2(errors.get(), STDERR_FILENO);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }
  return child;
}

struct Pipe {
  Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "pipe");
    }
    read = File_Descriptor(ends[0]);
    write = File_Descriptor(ends[1]);
  }
  File_Descriptor read;
  File_Descriptor write;
};

/// A descriptor that becomes readable when the process ends.
File_Descriptor descriptor_of(pid_t process) {
  return File_Descriptor(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
}

bool readable(const File_Descriptor& descriptor, std::chrono::milliseconds patience) {
  pollfd event{descriptor.get(), POLLIN, 0};
  const auto end = std::chrono::steady_clock::now() + patience;
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    const int ready = ::poll(&event, 1, left.count() > 0 ? static_cast<int>(left.count()) : 0);
    if (ready > 0) return true;
    if (ready == 0) return false;
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
  }
}

/// Waits for the process and takes its end off the system; true when it came in time.
bool reap(pid_t process, const File_Descriptor& descriptor, std::chrono::milliseconds patience,
          int& result) {
  const bool in_time = readable(descriptor, patience);
  if (!in_time) ::kill(process, SIGKILL);
  int status = 0;
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  result = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return in_time;
}

unsigned short port_after(const std::string& line, const std::string& prefix) {
  const std::size_t at = line.find(prefix);
  if (at == std::string::npos) throw std::runtime_error("no " + prefix + " in: " + line);
  return static_cast<unsigned short>(std::stoi(line.substr(at + prefix.size())));
}

}  // namespace

Service_Process::Service_Process(const Service_Settings& settings)
    : access_key_(settings.access_key ? "test-key-0f3a9c57" : "") {
  const Identity& identity = Test_Certificates::instance().server;
  command_ = {ZQPOOLD,
              "--listen",
              "127.0.0.1:0",
              "--tls-listen",
              "127.0.0.1:0",
              "--certificate",
              identity.certificate_file,
              "--private-key",
              identity.key_file,
              "--state",
              state_file(),
              "--access-log",
              directory_.path("log")};
  if (settings.access_key) {
    Secrets::add(access_key_);
    command_.insert(command_.end(),
                    {"--access-key-file", directory_.write("key", access_key_ + '\n')});
  } else {
    command_.emplace_back("--no-access-key");
  }
  if (settings.lab) command_.emplace_back("--lab");
  if (!settings.scenario.empty()) {
    command_.insert(command_.end(),
                    {"--scenario", directory_.write("scenario.json", settings.scenario)});
  }
  command_.insert(command_.end(), settings.arguments.begin(), settings.arguments.end());
  start();
}

Service_Process::~Service_Process() {
  if (pid_ != 0) {
    ::kill(pid_, SIGKILL);
    int result = 0;
    reap(pid_, process_, max_start, result);
  }
  Secrets::expect_none_in(messages(), "the service's messages");
  Secrets::expect_none_in(content_of(directory_.path("log")), "the service's access log");
}

void Service_Process::start() {
  if (pid_ != 0) throw std::logic_error("the service is running");
  Pipe pipe;
  pid_ = spawn_command(command_, pipe.write.get(), directory_.path("messages"));
  process_ = descriptor_of(pid_);
  output_ = std::move(pipe.read);
  pipe.write.close();
  read_ready_line();
}

void Service_Process::read_ready_line() {
  const auto end = std::chrono::steady_clock::now() + max_start;
  std::string line;
  char next = 0;
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (!readable(output_, left)) {
      kill();
      throw std::runtime_error("zqpoold was not ready in time: " + line + messages());
    }
    const ssize_t count = ::read(output_.get(), &next, 1);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) {
      const int code = wait();
      throw std::runtime_error("zqpoold ended with " + std::to_string(code) + ": " + messages());
    }
    if (next == '\n') break;
    line += next;
  }
  http_port_ = port_after(line, "http://127.0.0.1:");
  https_port_ = port_after(line, "https://127.0.0.1:");
}

void Service_Process::signal(int number) const {
  if (pid_ == 0 || ::kill(pid_, number) != 0) {
    throw std::runtime_error("no process to send a signal to");
  }
}

int Service_Process::stop() {
  signal(SIGTERM);
  return wait();
}

void Service_Process::kill() {
  signal(SIGKILL);
  wait();
}

int Service_Process::wait(std::chrono::seconds patience) {
  if (pid_ == 0) throw std::logic_error("the service is not running");
  int result = 0;
  const bool in_time = reap(pid_, process_, patience, result);
  pid_ = 0;
  if (!in_time) throw std::runtime_error("zqpoold did not end in time: " + messages());
  return result;
}

std::vector<std::string> Service_Process::access_log() const {
  std::istringstream in(content_of(directory_.path("log")));
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);)
    lines.push_back(line);
  return lines;
}

std::string Service_Process::messages() const {
  return content_of(directory_.path("messages"));
}

Service_Result run_service(const std::vector<std::string>& arguments) {
  const Temp_Directory directory;
  std::vector<std::string> command{ZQPOOLD};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const std::string output = directory.write("output", "");
  const File_Descriptor out(::open(output.c_str(), O_WRONLY | O_CLOEXEC));
  const pid_t process = spawn_command(command, out.get(), directory.path("messages"));
  Service_Result result;
  const bool in_time = reap(process, descriptor_of(process), max_start, result.exit_code);
  result.output = content_of(output);
  result.messages = content_of(directory.path("messages"));
  if (!in_time) throw std::runtime_error("zqpoold did not end by itself: " + result.messages);
  return result;
}

}  // namespace zqpool::test
