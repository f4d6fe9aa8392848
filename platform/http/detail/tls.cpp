#include "platform/http/detail/tls.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <iterator>
#include <utility>

namespace zqpool::detail {
namespace {

constexpr std::size_t max_sessions = 1024;

/// `host` as certificates name it: without an address's zone or a name's final dot.
std::string certified_name(const std::string& host, bool literal) {
  std::string name = host.substr(0, literal ? host.find('%') : std::string::npos);
  if (!literal && name.back() == '.') name.pop_back();
  return name;
}

}  // namespace

void TLS_Session_Cache::put(const std::string& endpoint, SSL_Session_Ptr session) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = entries_.find(endpoint);
  if (found != entries_.end()) {
    found->second.session = std::move(session);
    by_age_.splice(by_age_.end(), by_age_, found->second.age);
    return;
  }
  if (entries_.size() >= max_sessions) {
    entries_.erase(by_age_.front());
    by_age_.pop_front();
  }
  by_age_.push_back(endpoint);
  entries_.emplace(endpoint, Entry{std::move(session), std::prev(by_age_.end())});
}

SSL_Session_Ptr TLS_Session_Cache::get(const std::string& endpoint) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = entries_.find(endpoint);
  if (found == entries_.end()) return nullptr;
  SSL_SESSION_up_ref(found->second.session.get());
  return SSL_Session_Ptr(found->second.session.get());
}

TLS_Context::TLS_Context(const HTTP_Options& options) : context_(SSL_CTX_new(TLS_client_method())) {
  if (context_ == nullptr) {
    error_ = "cannot make a TLS context: " + openssl_error_text();
  } else {
    load(options);
  }
}

void TLS_Context::load(const HTTP_Options& options) {
  SSL_CTX* const context = context_.get();
  SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
  SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  SSL_CTX_set_read_ahead(context, 1);
  SSL_CTX_set_verify(context, options.verify ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, nullptr);
  SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
  SSL_CTX_sess_set_new_cb(context, &TLS_Context::keep_session);
  if (SSL_CTX_set_app_data(context, this) != 1) {
    error_ = "cannot make a TLS context: " + openssl_error_text();
    return;
  }

  if (options.verify) {
    if (options.ca_file.empty() && options.ca_directory.empty()) {
      if (SSL_CTX_set_default_verify_paths(context) != 1) {
        error_ = "cannot load the system's certificate authorities: " + openssl_error_text();
        return;
      }
    }
    if (!options.ca_file.empty() &&
        SSL_CTX_load_verify_file(context, options.ca_file.c_str()) != 1) {
      error_ = "cannot load CA file '" + options.ca_file + "': " + openssl_error_text();
      return;
    }
    if (!options.ca_directory.empty() &&
        SSL_CTX_load_verify_dir(context, options.ca_directory.c_str()) != 1) {
      error_ = "cannot use CA directory '" + options.ca_directory + "': " + openssl_error_text();
      return;
    }
  }
  if (!options.certificate_file.empty()) {
    const std::string& key_file =
        options.private_key_file.empty() ? options.certificate_file : options.private_key_file;
    if (SSL_CTX_use_certificate_chain_file(context, options.certificate_file.c_str()) != 1) {
      error_ =
          "cannot load certificate '" + options.certificate_file + "': " + openssl_error_text();
    } else if (SSL_CTX_use_PrivateKey_file(context, key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
      // Also checks that the key belongs to the certificate.
      error_ = "cannot use private key '" + key_file + "': " + openssl_error_text();
    }
  }
}

int TLS_Context::keep_session(SSL* ssl, SSL_SESSION* session) {
  const auto* endpoint = static_cast<const std::string*>(SSL_get_app_data(ssl));
  auto* trust = static_cast<TLS_Context*>(SSL_CTX_get_app_data(SSL_get_SSL_CTX(ssl)));
  try {
    trust->sessions_.put(*endpoint, SSL_Session_Ptr(session));
  } catch (const std::bad_alloc&) {
    // The session is lost, and the next handshake is a full one.
  }
  return 1;
}

SSL_Ptr TLS_Context::make_client(const std::string& host, bool literal,
                                 const std::string& endpoint) {
  SSL_Ptr ssl(SSL_new(context_.get()));
  if (ssl == nullptr) return ssl;
  SSL_set_connect_state(ssl.get());
  std::string name = certified_name(host, literal);
  // SSL_set_tlsext_host_name() is a macro for this call with a cast that g++ warns about.
  const bool named =
      literal ? X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl.get()), name.c_str()) == 1
              : SSL_ctrl(ssl.get(), SSL_CTRL_SET_TLSEXT_HOSTNAME, TLSEXT_NAMETYPE_host_name,
                         name.data()) == 1 &&
                    SSL_set1_host(ssl.get(), name.c_str()) == 1;
  if (!named || SSL_set_app_data(ssl.get(), const_cast<std::string*>(&endpoint)) != 1) {
    return nullptr;
  }
  if (const SSL_Session_Ptr session = sessions_.get(endpoint)) {
    SSL_set_session(ssl.get(), session.get());
  }
  return ssl;
}

bool TLS_Context::is_certified(SSL* ssl, const std::string& host, bool literal) {
  // A resumed session's certificate was checked in its full handshake.
  if (SSL_get_verify_mode(ssl) == SSL_VERIFY_NONE || SSL_session_reused(ssl) == 1) return true;
  X509* const certificate = SSL_get0_peer_certificate(ssl);
  const std::string name = certified_name(host, literal);
  return certificate != nullptr &&
         (literal ? X509_check_ip_asc(certificate, name.c_str(), 0)
                  : X509_check_host(certificate, name.c_str(), name.size(), 0, nullptr)) == 1;
}

std::string openssl_error_text() {
  std::string text;
  for (unsigned long code = ERR_get_error(); code != 0; code = ERR_get_error()) {
    const char* reason = ERR_reason_error_string(code);
    if (!text.empty()) text += ", ";
    if (ERR_SYSTEM_ERROR(code)) {
      char buffer[256];
      ERR_error_string_n(code, buffer, sizeof buffer);
      text += reason != nullptr ? reason : buffer;
    } else {
      text += reason != nullptr ? reason : "unknown error";
    }
  }
  return text.empty() ? "unknown error" : text;
}

}  // namespace zqpool::detail
