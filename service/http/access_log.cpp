#include "service/http/access_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>

#include "platform/text/percent.h"
#include "service/api/text.h"

namespace zqpool::service {

namespace {

constexpr std::size_t max_target = 4096;

int open_log(const std::string& file) {
  if (file == "-") return ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  return ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
}

bool names_a_secret(std::string_view field_name) {
  const std::optional<std::string> decoded = text::decode_query_text(field_name);
  if (!decoded) return true;  // to be on the safe side
  const std::string name = lower_case(*decoded);
  for (const char* word :
       {"key", "secret", "token", "password", "passwd", "credential", "signature"}) {
    if (name.find(word) != std::string::npos) return true;
  }
  return false;
}

std::string shortened(std::string text) {
  if (text.size() <= max_target) return text;
  const std::size_t more = text.size() - max_target;
  text.resize(max_target);
  return text + "...(" + std::to_string(more) + " more)";
}

std::string or_dash(const std::string& text) {
  return text.empty() ? "-" : text;
}

}  // namespace

std::string without_secrets(std::string_view target) {
  const std::size_t question = target.find('?');
  if (question == std::string_view::npos) return std::string(target);
  std::string out(target.substr(0, question + 1));
  std::string_view rest = target.substr(question + 1);
  while (true) {
    const std::size_t end = rest.find('&');
    const std::string_view field = rest.substr(0, end);
    const std::size_t equals = field.find('=');
    if (equals != std::string_view::npos && names_a_secret(field.substr(0, equals))) {
      out += field.substr(0, equals + 1);
      out += "***";
    } else {
      out += field;
    }
    if (end == std::string_view::npos) return out;
    out += '&';
    rest.remove_prefix(end + 1);
  }
}

Access_Log::Access_Log(std::string file) : file_(std::move(file)), descriptor_(open_log(file_)) {
  if (descriptor_ < 0) {
    throw std::runtime_error("cannot open access log '" + file_ + "': " + std::strerror(errno));
  }
}

Access_Log::~Access_Log() {
  ::close(descriptor_);
}

std::string Access_Log::line(const Access_Record& record, const std::string& time) {
  std::array<char, 128> numbers{};
  std::snprintf(numbers.data(), numbers.size(), " status=%u bytes=%llu ms=%.3f", record.status,
                static_cast<unsigned long long>(record.bytes),
                static_cast<double>(record.duration.count()) / 1000.0);
  std::string out = time + " peer=" + or_dash(record.peer) +
                    " id=" + or_dash(printable(record.request_id)) + " \"" +
                    or_dash(shortened(printable(record.method))) + ' ' +
                    or_dash(shortened(printable(without_secrets(record.target)))) + '"' +
                    numbers.data() + " fault=" + or_dash(record.fault);
  if (!record.note.empty()) out += " note=\"" + printable(record.note) + '"';
  return out;
}

void Access_Log::write(const Access_Record& record) {
  const std::string text = line(record, utc_now()) + '\n';
  const std::lock_guard<std::mutex> hold(mutex_);
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = ::write(descriptor_, text.data() + done, text.size() - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) {
      if (!failed_) {
        std::fprintf(stderr, "zqpoold: cannot write to access log '%s': %s\n", file_.c_str(),
                     std::strerror(errno));
      }
      failed_ = true;
      return;
    }
    done += static_cast<std::size_t>(written);
  }
  failed_ = false;
}

void Access_Log::reopen() {
  if (file_ == "-") return;
  const int fresh = open_log(file_);
  if (fresh < 0) {
    std::fprintf(stderr, "zqpoold: cannot open access log '%s' again: %s\n", file_.c_str(),
                 std::strerror(errno));
    return;
  }
  const std::lock_guard<std::mutex> hold(mutex_);
  ::close(descriptor_);
  descriptor_ = fresh;
}

}  // namespace zqpool::service
