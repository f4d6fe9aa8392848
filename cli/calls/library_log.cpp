#include "cli/calls/library_log.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "cli/support/messages.h"

namespace zqpool::cli {

namespace {

Captured_Log& captured() {
  thread_local Captured_Log lines;
  return lines;
}

}  // namespace

bool Captured_Log::has_error(const std::string& prefix) const {
  return std::any_of(errors.begin(), errors.end(),
                     [&prefix](const std::string& line) { return line.rfind(prefix, 0) == 0; });
}

Library_Log::Library_Log(bool show, std::function<void()> retrying)
    : show_(show), retrying_(std::move(retrying)) {
  ACE_Log_Msg::msg_backend(this);
  ACE_Log_Msg* const log = ACE_LOG_MSG;
  log->set_flags(ACE_Log_Msg::CUSTOM);
  log->clr_flags(ACE_Log_Msg::STDERR);
}

Library_Log::~Library_Log() {
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::CUSTOM);
  ACE_Log_Msg::msg_backend(nullptr);
}

Captured_Log Library_Log::take() {
  return std::exchange(captured(), Captured_Log());
}

int Library_Log::open(const char*) {
  return 0;
}

int Library_Log::reset() {
  return 0;
}

int Library_Log::close() {
  return 0;
}

ssize_t Library_Log::log(ACE_Log_Record& record) {
  std::string_view line(record.msg_data());
  while (!line.empty() && line.back() == '\n')
    line.remove_suffix(1);
  if (record.type() == LM_ERROR || record.type() == LM_EMERGENCY) {
    captured().errors.emplace_back(line);
  } else if (record.type() == LM_WARNING) {
    captured().warnings.emplace_back(line);
  }
  if (show_) say_plain(line);
  if (record.type() == LM_INFO && line.substr(0, 6) == "Retry(") retrying_();
  return 0;
}

}  // namespace zqpool::cli
