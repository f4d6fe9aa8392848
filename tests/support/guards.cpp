#include "tests/support/guards.h"

#include <ace/Log_Msg.h>

#include <mutex>

#include "tests/support/test_certificates.h"

namespace zqpool::test {
namespace {

std::mutex pauses_mutex;
std::vector<std::chrono::milliseconds> recorded_pauses;

void record(std::chrono::milliseconds pause) {
  const std::lock_guard lock(pauses_mutex);
  recorded_pauses.push_back(pause);
}

}  // namespace

Sleep_Recorder::Sleep_Recorder() {
  const std::lock_guard lock(pauses_mutex);
  recorded_pauses.clear();
  client_before_ = detail::replace_sleep(&record);
  operation_before_ = detail::replace_retry_sleep(&record);
}

Sleep_Recorder::~Sleep_Recorder() {
  detail::replace_retry_sleep(operation_before_);
  detail::replace_sleep(client_before_);
}

std::vector<std::chrono::milliseconds> Sleep_Recorder::pauses() const {
  const std::lock_guard lock(pauses_mutex);
  return recorded_pauses;
}

Log_Silence::Log_Silence()
    : process_mask_(ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::PROCESS)),
      thread_mask_(ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::THREAD)) {}

Log_Silence::~Log_Silence() {
  ACE_Log_Msg::instance()->priority_mask(process_mask_, ACE_Log_Msg::PROCESS);
  ACE_Log_Msg::instance()->priority_mask(thread_mask_, ACE_Log_Msg::THREAD);
}

HTTP_Options options_with_test_ca() {
  HTTP_Options options = HTTP_Options::get();
  options.ca_file = Test_Certificates::instance().ca_file;
  return options;
}

}  // namespace zqpool::test
