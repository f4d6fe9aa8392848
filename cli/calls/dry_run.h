#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "cli/calls/outcome.h"
#include "platform/json/json_spirit.h"

namespace zqpool::cli {

/// Holds back requests of its thread during its lifetime. An operation that reads sends nothing;
/// one that changes something sends the reads before its first change.
class Dry_Run {
 public:
  explicit Dry_Run(Effect effect);
  ~Dry_Run();
  Dry_Run(const Dry_Run&) = delete;
  Dry_Run& operator=(const Dry_Run&) = delete;

  /// For HTTP_Options::may_send.
  static bool may_send(std::string_view request);

  /// The first request that was held back, if any.
  const std::optional<std::string>& request() const noexcept { return request_; }

 private:
  const Effect effect_;
  std::optional<std::string> request_;
};

/// A request for people to read; keys are hidden.
std::string shown_request(const std::string& request);

/// The same as a record: "method", "target", "headers", "body" (its JSON, null for none).
Object request_record(const std::string& request);

}  // namespace zqpool::cli
