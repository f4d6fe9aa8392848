#include "tests/support/answer.h"

#include <algorithm>
#include <cstdio>

namespace zqpool::test {
namespace {

const char* reason(unsigned status) {
  switch (status) {
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 204:
      return "No Content";
    case 304:
      return "Not Modified";
    case 404:
      return "Not Found";
    case 503:
      return "Service Unavailable";
    default:
      return "Scripted";
  }
}

}  // namespace

Answer& Answer::header(const std::string& name, const std::string& value) {
  headers_.emplace_back(name, value);
  return *this;
}

Answer& Answer::chunked(std::size_t chunk) {
  chunk_ = std::max<std::size_t>(chunk, 1);
  return *this;
}

Answer& Answer::until_end() {
  until_end_ = true;
  if (end_ == End::automatic) end_ = End::close;
  return *this;
}

Answer& Answer::after(const std::string& bytes) {
  prefix_ += bytes;
  return *this;
}

Answer& Answer::cut_after(std::size_t bytes) {
  cut_after_ = bytes;
  if (end_ == End::automatic) end_ = End::close;
  return *this;
}

Answer& Answer::drip(std::chrono::milliseconds pause, std::size_t from) {
  pause_ = pause;
  drip_from_ = from;
  return *this;
}

Answer& Answer::end(End end) {
  end_ = end;
  return *this;
}

Answer& Answer::before(std::function<void(const Recorded_Request&)> hook) {
  hook_ = std::move(hook);
  return *this;
}

std::string Answer::bytes(bool closing) const {
  if (raw_) return prefix_ + body_;
  std::string out = prefix_;
  out += "HTTP/1.1 " + std::to_string(status_) + ' ' + reason(status_) + "\r\n";
  for (const auto& [name, value] : headers_)
    out += name + ": " + value + "\r\n";
  if (closing) out += "Connection: close\r\n";
  if (chunk_ > 0) {
    out += "Transfer-Encoding: chunked\r\n\r\n";
    for (std::size_t at = 0; at < body_.size(); at += chunk_) {
      const std::string piece = body_.substr(at, chunk_);
      char size[24];
      std::snprintf(size, sizeof size, "%zx\r\n", piece.size());
      out += size + piece + "\r\n";
    }
    return out + "0\r\n\r\n";
  }
  const bool bodiless = status_ == 204 || status_ == 304;
  if (!until_end_ && !bodiless) {
    out += "Content-Length: " + std::to_string(body_.size()) + "\r\n";
  }
  return out + "\r\n" + body_;
}

Answer http_answer(unsigned status, std::string body, Header_List headers) {
  Answer answer;
  answer.status_ = status;
  answer.body_ = std::move(body);
  answer.headers_ = std::move(headers);
  return answer;
}

Answer json_answer(unsigned status, std::string body) {
  return http_answer(status, std::move(body), {{"Content-Type", "application/json"}});
}

Answer raw_answer(std::string bytes) {
  Answer answer;
  answer.raw_ = true;
  answer.body_ = std::move(bytes);
  answer.end_ = Answer::End::close;
  return answer;
}

Answer silent() {
  return raw_answer("").end(Answer::End::hold);
}
Answer close_after_request() {
  return raw_answer("");
}
Answer reset_after_request() {
  return raw_answer("").end(Answer::End::reset);
}

Answer on_accept(Answer::On_Accept what, std::size_t read_first, const std::string& early) {
  Answer answer = raw_answer(early);
  answer.on_accept_ = what;
  answer.read_first_ = read_first;
  return answer;
}

Answer ignore_connection() {
  return on_accept(Answer::On_Accept::ignore);
}
Answer close_at_once() {
  return on_accept(Answer::On_Accept::close);
}
Answer reset_at_once() {
  return on_accept(Answer::On_Accept::reset);
}
Answer reset_after_reading(std::size_t bytes, const std::string& early) {
  return on_accept(Answer::On_Accept::reset_later, bytes, early);
}

}  // namespace zqpool::test
