#pragma once

#include <openssl/ssl.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/json/json_spirit.h"
#include "tests/support/scripted_server.h"
#include "tests/support/service_process.h"
#include "tests/support/sockets.h"

namespace zqpool::test {

/// One answer as it came.
struct Http_Answer {
  unsigned status = 0;
  std::string head;
  std::map<std::string, std::string> headers;  ///< names in lower case
  std::string body;

  std::string header(const std::string& name) const;
  /// The body as JSON; a test failure and null when it is none.
  json_spirit::Value json() const;
};

/// How a connection ended.
enum class Ending {
  closed,     ///< in order; under TLS with its close alert
  truncated,  ///< under TLS without the close alert
  reset,
  silent,  ///< it did not, for so long as was waited
};

/// A connection to the service that sends bytes as they are and reads answers one by one. It knows
/// nothing of the platform's client, so that it can hold the service against the protocol.
class Http_Client {
 public:
  /// Connects; under TLS the certificate is checked. `session` is a TLS session to resume.
  explicit Http_Client(const Endpoint& to, SSL_SESSION* session = nullptr);
  ~Http_Client();
  Http_Client(const Http_Client&) = delete;
  Http_Client& operator=(const Http_Client&) = delete;

  /// False when the connection broke meanwhile.
  bool send(const std::string& bytes);
  /// Says that nothing more is sent, and goes on reading. Plain connections only.
  void end_sending();
  /// The next answer; absent when the connection ended before it was whole. `to_head` is the answer
  /// to a HEAD request.
  std::optional<Http_Answer> read(bool to_head = false);
  /// Reads what comes until the connection ends, or nothing came for so long.
  Ending read_to_end(std::string& bytes,
                     std::chrono::milliseconds patience = std::chrono::milliseconds(20000));
  /// As above, of what was not taken as an answer yet.
  Ending ending();

  bool session_reused() const;
  /// The session of this connection, for another one. Only whole after an answer was read.
  std::shared_ptr<SSL_SESSION> session() const;
  unsigned short local_port() const;

 private:
  /// Bytes that came, 0 at the end or after `patience`; ending_ then says which.
  std::size_t receive(char* to, std::size_t room, std::chrono::milliseconds patience);
  bool more();

  File_Descriptor socket_;
  std::shared_ptr<SSL_CTX> context_;
  std::unique_ptr<SSL, void (*)(SSL*)> ssl_;
  std::string buffer_;
  Ending ending_ = Ending::silent;
};

/// The text of a request: request line, Host, the key when there is one, `more` header lines (each
/// with its line ending), Content-Length and Content-Type when there is a body.
std::string request_text(const std::string& method, const std::string& target,
                         const std::string& key, const std::string& body = "",
                         const std::string& more = "");

/// One request on a connection of its own, which the service is asked to close; waits until it did,
/// so that its log line is there. A test failure when there is no whole answer.
Http_Answer ask(const Service_Process& service, const std::string& method,
                const std::string& target, const std::string& body = "",
                const std::string& more = "", bool ssl = false);

}  // namespace zqpool::test
