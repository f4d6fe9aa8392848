#include "service/http/faulty_response.h"

#include <algorithm>
#include <utility>

namespace zqpool::service {

namespace {

constexpr std::size_t filler_piece = 65536;

}  // namespace

Faulty_Response::Faulty_Response(const Fault& fault, Response response,
                                 const Response_Context& context) {
  const bool body_sent = has_body(response, context);
  const auto bytes = static_cast<std::size_t>(fault.bytes);
  std::size_t body_size = std::string::npos;
  switch (fault.kind) {
    case Fault_Kind::status:
    case Fault_Kind::delay:
      break;
    case Fault_Kind::reset_before_commit:
    case Fault_Kind::reset_after_commit:
      end_ = End::reset;
      return;
    case Fault_Kind::wrong_type:
      happens_ = change_type(fault, response);
      break;
    case Fault_Kind::cut:
      happens_ = body_sent && bytes < response.body.size();
      if (happens_) {
        body_size = bytes;
        end_ = End::cut;
      }
      break;
    case Fault_Kind::drip:
      piece_size_ = bytes;
      interval_ = std::chrono::milliseconds(fault.interval_ms);
      break;
    case Fault_Kind::garbage:
      if (fault.whole_answer) {
        text_ = random_bytes(fault.seed, bytes);
        end_ = End::close;
        return;
      }
      response.body = random_bytes(fault.seed, bytes);
      break;
    case Fault_Kind::huge:
      happens_ = body_sent;
      if (happens_) {
        filler_size_ = bytes;
        body_size = 0;
      }
      break;
  }
  text_ = response_head(response, filler_size_ != 0 ? filler_size_ : response.body.size(), context);
  if (body_sent) text_.append(response.body, 0, body_size);
  if (fault.kind == Fault_Kind::drip) happens_ = text_.size() > piece_size_;
}

std::string Faulty_Response::next_piece() {
  if (sent_ < text_.size()) {
    std::string piece = text_.substr(sent_, piece_size_);
    sent_ += piece.size();
    return piece;
  }
  std::string piece(std::min<std::uint64_t>(filler_size_ - filler_sent_, filler_piece), 'x');
  if (piece.empty()) return piece;
  if (filler_sent_ == 0) piece.front() = '"';
  filler_sent_ += piece.size();
  if (filler_sent_ == filler_size_) piece.back() = '"';
  return piece;
}

std::chrono::milliseconds Faulty_Response::pause() const {
  return sent_ < text_.size() ? interval_ : std::chrono::milliseconds(0);
}

}  // namespace zqpool::service
