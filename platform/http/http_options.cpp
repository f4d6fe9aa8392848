#include "platform/http/http_options.h"

#include <ace/Log_Msg.h>

#include <mutex>
#include <utility>

#include "platform/http/detail/transport_settings.h"
#include "platform/json/json_spirit.h"

namespace zqpool::detail {
namespace {

struct Current {
  std::mutex mutex;
  std::shared_ptr<const Transport_Settings> settings =
      std::make_shared<Transport_Settings>(HTTP_Options());
};

Current& current() {
  // Never destroyed: other threads may still make calls when the process ends.
  static Current& instance = *new Current;
  return instance;
}

}  // namespace

std::shared_ptr<TLS_Context> Transport_Settings::tls_context() const {
  std::call_once(loaded_, [this] { tls_context_ = std::make_shared<TLS_Context>(options); });
  return tls_context_;
}

std::shared_ptr<const Transport_Settings> transport_settings() {
  const std::lock_guard<std::mutex> lock(current().mutex);
  return current().settings;
}

}  // namespace zqpool::detail

void HTTP_Options::set(const HTTP_Options& options) {
  using namespace zqpool::detail;
  if (!options.verify) {
    ACE_ERROR((LM_WARNING,
               "TLS certificates are not verified: whoever answers receives the access key.\n"));
  }
  auto settings = std::make_shared<const Transport_Settings>(options);
  json_spirit::set_max_document_size(options.largest_answer);
  const std::lock_guard<std::mutex> lock(current().mutex);
  current().settings.swap(settings);
}

HTTP_Options HTTP_Options::get() {
  return zqpool::detail::transport_settings()->options;
}
