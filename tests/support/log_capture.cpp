#include "tests/support/log_capture.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

#include <utility>

#include "tests/support/secrets.h"

namespace zqpool::test {

std::ostream& operator<<(std::ostream& out, const Log_Line& line) {
  return out << line.priority << " \"" << line.text << '"';
}

Log_Capture::Log_Capture()
    : old_flags_(ACE_Log_Msg::instance()->flags()), old_backend_(ACE_Log_Msg::msg_backend(this)) {
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  log->clr_flags(ACE_Log_Msg::STDERR);
  log->set_flags(ACE_Log_Msg::CUSTOM);
}

Log_Capture::~Log_Capture() {
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  log->clr_flags(log->flags());
  log->set_flags(old_flags_);
  ACE_Log_Msg::msg_backend(old_backend_);
  Secrets::expect_none_in(ever_, "the log");
}

std::vector<Log_Line> Log_Capture::lines() const {
  const std::lock_guard lock(mutex_);
  return lines_;
}

std::vector<Log_Line> Log_Capture::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(lines_, {});
}

std::vector<std::string> Log_Capture::texts(const std::string& priority) const {
  const std::lock_guard lock(mutex_);
  std::vector<std::string> texts;
  for (const Log_Line& line : lines_) {
    if (line.priority == priority) texts.push_back(line.text);
  }
  return texts;
}

std::string Log_Capture::all() const {
  const std::lock_guard lock(mutex_);
  std::string all;
  for (const Log_Line& line : lines_)
    all += line.text;
  return all;
}

int Log_Capture::open(const char*) {
  return 0;
}
int Log_Capture::reset() {
  return 0;
}
int Log_Capture::close() {
  return 0;
}

ssize_t Log_Capture::log(ACE_Log_Record& record) {
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  Log_Line line;
  line.priority = ACE_Log_Record::priority_name(static_cast<ACE_Log_Priority>(record.type()));
  line.text = record.msg_data();
  line.line = log->linenum();
  if (line.line > 0 && log->file() != nullptr) line.file = log->file();
  // ACE keeps a thread's location until the next one is set: clear it, or a record made without one
  // would seem to have the last one.
  log->linenum(0);
  const std::lock_guard lock(mutex_);
  ever_ += line.text;
  lines_.push_back(std::move(line));
  return 0;
}

}  // namespace zqpool::test
