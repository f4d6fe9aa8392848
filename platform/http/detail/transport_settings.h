#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "platform/http/detail/tls.h"
#include "platform/http/http_options.h"

namespace zqpool::detail {

/// The process's options with the TLS context made from them, which is loaded on first use.
class Transport_Settings {
 public:
  explicit Transport_Settings(HTTP_Options all) : options(std::move(all)) {}
  const HTTP_Options options;
  std::shared_ptr<TLS_Context> tls_context() const;

 private:
  mutable std::once_flag loaded_;
  mutable std::shared_ptr<TLS_Context> tls_context_;
};

/// The settings in force now. A call keeps those it began with.
std::shared_ptr<const Transport_Settings> transport_settings();

}  // namespace zqpool::detail
