#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace zqpool::test {

struct Recorded_Request;

using Header_List = std::vector<std::pair<std::string, std::string>>;

/// What a Scripted_Server does with one request, or with one connection before any request.
///
/// @code
///   server.queue(json_answer(200, R"({"rows":[]})"));
///   server.queue(json_answer(200, "{}").cut_after(20).end(Answer::End::reset));
///   server.otherwise(silent());
/// @endcode
class Answer {
 public:
  /// What happens to the connection after the answer.
  enum class End {
    automatic,  ///< closed when the request said "Connection: close", else kept for the next one
    close,      ///< closed in order, without saying so in the answer
    abrupt,     ///< closed, under TLS without the close alert
    reset,      ///< torn down with RST
    hold,       ///< kept open, nothing is read or sent any more
  };
  /// What to do with a new connection.
  enum class On_Accept {
    read,         ///< read the request, then answer it
    ignore,       ///< neither TLS handshake nor reading: the peer waits
    close,        ///< close at once
    reset,        ///< RST at once
    reset_later,  ///< RST after so many bytes (TLS: after the handshake), with or without answer
  };

  /// A header of the answer, after those before.
  Answer& header(const std::string& name, const std::string& value);
  /// The body goes out in chunks of so many bytes, with Transfer-Encoding instead of a length.
  Answer& chunked(std::size_t chunk);
  /// No Content-Length: the end of the connection ends the body.
  Answer& until_end();
  /// Bytes in front of the answer, such as "HTTP/1.1 100 Continue\r\n\r\n".
  Answer& after(const std::string& bytes);
  /// Only the first so many bytes go out, then end().
  Answer& cut_after(std::size_t bytes);
  /// From byte `from` on, one byte every `pause`.
  Answer& drip(std::chrono::milliseconds pause, std::size_t from = 0);
  Answer& end(End end);
  /// Called on the connection's thread between request and answer.
  Answer& before(std::function<void(const Recorded_Request&)> hook);

  /// The bytes of the whole answer; `closing` adds "Connection: close".
  std::string bytes(bool closing) const;

  On_Accept on_accept() const { return on_accept_; }

 private:
  friend class Scripted_Server;
  friend Answer http_answer(unsigned, std::string, Header_List);
  friend Answer raw_answer(std::string);
  friend Answer on_accept(On_Accept, std::size_t, const std::string&);

  bool raw_ = false;
  unsigned status_ = 200;
  Header_List headers_;
  std::string body_;
  std::string prefix_;
  std::size_t chunk_ = 0;
  bool until_end_ = false;
  std::size_t cut_after_ = std::string::npos;
  std::chrono::milliseconds pause_{0};
  std::size_t drip_from_ = 0;
  End end_ = End::automatic;
  On_Accept on_accept_ = On_Accept::read;
  std::size_t read_first_ = 0;
  std::function<void(const Recorded_Request&)> hook_;
};

/// A whole HTTP/1.1 answer with Content-Length (none for 204 and 304).
Answer http_answer(unsigned status, std::string body, Header_List headers = {});
/// The same with Content-Type: application/json.
Answer json_answer(unsigned status, std::string body);
/// These bytes and nothing else; then closes the connection unless end() says otherwise.
Answer raw_answer(std::string bytes);
/// Reads the request, sends nothing and keeps the connection.
Answer silent();
/// Reads the request, then closes or resets the connection without an answer.
Answer close_after_request();
Answer reset_after_request();
Answer on_accept(Answer::On_Accept what, std::size_t read_first = 0, const std::string& early = "");
/// Accepts the connection, but reads neither a TLS handshake nor a request.
Answer ignore_connection();
Answer close_at_once();
Answer reset_at_once();
/// Sends `early`, and RST once so many bytes of the request were read.
Answer reset_after_reading(std::size_t bytes, const std::string& early = "");

}  // namespace zqpool::test
