#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "service/api/message.h"
#include "service/app/faults.h"
#include "service/http/response_head.h"

namespace zqpool::service {

/// A response damaged by a scripted fault: what to send, piece by piece, and how the connection
/// ends.
class Faulty_Response {
 public:
  enum class End {
    normal,  ///< as after any response
    close,   ///< closed in order
    cut,     ///< closed at once, over TLS without a close alert
    reset,
  };

  Faulty_Response(const Fault& fault, Response response, const Response_Context& context);

  /// Whether the client can notice the fault.
  bool happens() const { return happens_; }
  /// What to send next; "" when all is sent.
  std::string next_piece();
  /// How long to wait before the next piece.
  std::chrono::milliseconds pause() const;
  End end() const { return end_; }

 private:
  bool happens_ = true;
  End end_ = End::normal;
  std::string text_;
  std::size_t sent_ = 0;  ///< of text_
  std::size_t piece_size_ = std::string::npos;
  std::chrono::milliseconds interval_{0};
  std::uint64_t filler_size_ = 0;  ///< follows text_: a JSON string of this many bytes
  std::uint64_t filler_sent_ = 0;
};

}  // namespace zqpool::service
