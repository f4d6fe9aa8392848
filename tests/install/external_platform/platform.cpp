// What else the product's platform has: JSON as text, URLs, addresses, identity, keys.
#include <arpa/inet.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "platform/crypto/base64.h"
#include "platform/crypto/encryption.h"
#include "platform/crypto/s3_key.h"
#include "platform/host/initiators.h"
#include "platform/host/uuid.h"
#include "platform/json/json_dump.h"
#include "platform/net/address.h"
#include "platform/net/uri.h"
#include "platform/rpc/json_rpc.h"

namespace {

std::string quoted(const std::string& text) {
  std::string all = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') all += '\\';
    all += c;
  }
  return all + '"';
}

std::string text_of(const json_spirit::Value& value) {
  std::string all;
  if (const Object* members = value.find<Object>()) {
    for (const auto& [name, held] : *members)
      all += "," + quoted(name) + ":" + text_of(held);
    return "{" + all.erase(0, 1) + "}";
  }
  if (const Array* elements = value.find<Array>()) {
    for (const auto& element : *elements)
      all += "," + text_of(element);
    return "[" + all.erase(0, 1) + "]";
  }
  if (const std::string* text = value.find<std::string>()) return quoted(*text);
  if (const bool* flag = value.find<bool>()) return *flag ? "true" : "false";
  if (const auto* number = value.find<std::int64_t>()) return std::to_string(*number);
  if (const auto* number = value.find<std::uint64_t>()) return std::to_string(*number);
  if (const auto* number = value.find<double>()) return std::to_string(*number);
  return "null";
}

/// The schemes of both forms, each with the other.
const std::map<std::string, std::string> tls_forms = {
    {"http", "https"}, {"ws", "wss"}, {"dedup", "dedups"}, {"s3", "s3s"}};

}  // namespace

JSON_Dump::JSON_Dump(const json_spirit::Value& value, bool) : text_(text_of(value)) {}

// ---- URLs and addresses

bool URI_Parser::parse(const char* text, URI& to) {
  const std::string url = text;
  const std::size_t colon = url.find("://");
  if (colon == 0 || colon == std::string::npos) return false;
  URI found;
  found.scheme_ = url.substr(0, colon);
  const std::size_t slash = std::min(url.find('/', colon + 3), url.size());
  found.host_ = url.substr(colon + 3, slash - colon - 3);
  found.rest_ = url.substr(slash);
  const std::size_t port = found.host_.find_last_of(":]");
  if (port != std::string::npos && found.host_[port] == ':') {
    found.port_ = std::atoi(found.host_.c_str() + port + 1);
    found.host_.resize(port);
  }
  to = found;
  return true;
}

std::string URI::host(bool with_brackets) const {
  const bool bracketed = !host_.empty() && host_[0] == '[';
  return bracketed && !with_brackets ? host_.substr(1, host_.size() - 2) : host_;
}

bool URI::is_ssl() const {
  for (const auto& pair : tls_forms) {
    if (pair.second == scheme_) return true;
  }
  return false;
}

unsigned short URI::port() const {
  if (port_ >= 0) return static_cast<unsigned short>(port_);
  return is_ssl() ? 443 : tls_forms.count(scheme_) ? 80 : 0;
}

void URI::ssl(bool wanted) {
  for (const auto& [plain, tls] : tls_forms) {
    if (scheme_ == plain || scheme_ == tls) scheme_ = wanted ? tls : plain;
  }
}

void URI::build(std::ostream& to) const {
  to << scheme_ << "://" << host_;
  if (port_ >= 0) to << ':' << port_;
  to << rest_;
}

int ip_extended_format(const char* host, std::string& to) {
  in6_addr parsed;
  const bool v6 = inet_pton(AF_INET6, host, &parsed) == 1;
  if (!v6 && inet_pton(AF_INET, host, &parsed) != 1) return -1;
  to = v6 ? '[' + std::string(host) + ']' : host;
  return 0;
}

ACE_Addr_String::ACE_Addr_String(const ACE_INET_Addr& from, bool port)
    : text_(from.get_host_addr()) {
  if (text_.compare(0, 7, "::ffff:") == 0) text_.erase(0, 7);
  if (text_.find(':') != std::string::npos) text_ = '[' + text_ + ']';
  if (port) text_ += ':' + std::to_string(from.get_port_number());
}

// ---- This host

void get_iscsi_initiator_name(std::vector<std::string>& to) {
  to.emplace_back("iqn.2001-01.example.product:host-a");
}

void FC_Info::get_port_wwn(std::vector<std::string>& to) {
  to.insert(to.end(), {"0x1000000000000001", "0x1000000000000002"});
}

void uuid_string(std::string& to, bool) {
  static std::atomic<unsigned> count{0};
  char number[13];
  std::snprintf(number, sizeof number, "%012u", ++count);
  to = std::string("00000000-0000-4000-8000-") + number;
}

std::string JSON_RPC_Id_Generator::get() {
  std::string id;
  uuid_string(id, false);
  return id;
}

// ---- Keys

bool Base64_Decoder::set(const char* from, std::size_t size) {
  static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  decoded_.clear();
  unsigned bits = 0;
  unsigned count = 0;
  while (size > 0 && from[size - 1] == '=')
    --size;
  for (const char* c = from; c != from + size; ++c) {
    const char* digit = *c == '\0' ? nullptr : std::strchr(digits, *c);
    if (digit == nullptr) return false;
    bits = bits << 6 | static_cast<unsigned>(digit - digits);
    count += 6;
    if (count >= 8) decoded_ += static_cast<char>(bits >> (count -= 8) & 255);
  }
  return true;
}

Encryption_Algorithm encryption_name_to_value(const char* from, std::size_t size) {
  const std::string name(from, size);
  return name == "aes-256-gcm" ? ENCRYPT_AES_256_GCM
         : name == "none"      ? ENCRYPT_NONE
                               : ENCRYPT_UNKNOWN;
}

bool decrypt_s3_key(const char* url, std::string& key) {
  const std::string seal = std::string("sealed for ") + url + ' ';
  if (key.compare(0, seal.size(), seal) != 0) return false;
  key.erase(0, seal.size());
  return true;
}
