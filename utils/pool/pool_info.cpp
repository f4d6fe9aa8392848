#include "utils/pool/pool_info.h"

#include <ace/Codecs.h>

#include <charconv>
#include <memory>
#include <new>

#include "utils/pool/detail/read_base64.h"
#include "utils/support/json_util.h"

namespace {

std::string to_base64(const std::string& bytes) {
  if (bytes.empty()) return {};
  std::size_t length = 0;
  const std::unique_ptr<ACE_Byte[]> text(ACE_Base64::encode(
      reinterpret_cast<const ACE_Byte*>(bytes.data()), bytes.size(), &length, false));
  if (text == nullptr) throw std::bad_alloc();
  return std::string(reinterpret_cast<const char*>(text.get()), length);
}

void load_cipher(const Object& object, Encryption_Algorithm& cipher) {
  int value = 0;
  if (json_spirit::object_get(object, "cipher", value) && value >= ENCRYPT_UNKNOWN &&
      value <= ENCRYPT_EC) {
    cipher = static_cast<Encryption_Algorithm>(value);
  }
}

bool parse_node(const std::string& text, std::uint32_t& node) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, node);
  return error == std::errc() && stop == end;
}

}  // namespace

Pool_Info& Pool_Info::operator<<(const Object& object) {
  json_spirit::object_get(object, "uuid", uuid);
  json_spirit::object_get(object, "name", name);
  json_spirit::object_get(object, "host_uuid", host_uuid);
  json_spirit::object_get(object, "url", url);
  json_spirit::object_get(object, "device_exists", device_exists);
  json_spirit::object_get(object, "multidevice", multidevice);
  json_spirit::object_get(object, "server_side_encryption", server_side_encryption);
  load_cipher(object, cipher);
  zqpool::detail::read_base64(object, "key", key);
  zqpool::detail::read_base64(object, "iv", iv);
  json_spirit::object_get(object, "preferred_source_address", preferred_source_address);
  json_spirit::object_get(object, "tenant_access_key", tenant_access_key);
  if (const Object* attributes = json_spirit::object_get_object(object, "ext_attrs")) {
    ext_attrs.clear();
    for (const auto& [attribute, value] : *attributes) {
      if (value.type() == json_spirit::str_type) ext_attrs[attribute] = value.get_str();
    }
  }
  if (const Object* nodes = json_spirit::object_get_object(object, "node_addrs")) {
    node_addrs.clear();
    for (const auto& [text, value] : *nodes) {
      std::uint32_t node = 0;
      if (value.type() == json_spirit::str_type && parse_node(text, node)) {
        node_addrs[node] = value.get_str();
      }
    }
  }
  json_spirit::object_get(object, "dedup_backend_type", dedup_backend_type);
  return *this;
}

const Pool_Info& Pool_Info::operator>>(Object& object) const {
  Object attributes;
  for (const auto& [attribute, value] : ext_attrs)
    insert(attributes)(attribute, value);
  Object nodes;
  for (const auto& [node, address] : node_addrs)
    insert(nodes)(std::to_string(node), address);
  // clang-format off
  insert(object)
      ("uuid", uuid)
      ("name", name)
      ("host_uuid", host_uuid)
      ("url", url)
      ("device_exists", device_exists)
      ("multidevice", multidevice)
      ("server_side_encryption", server_side_encryption)
      ("cipher", static_cast<int>(cipher))
      ("key", to_base64(key))
      ("iv", to_base64(iv))
      ("preferred_source_address", preferred_source_address)
      ("tenant_access_key", tenant_access_key)
      ("ext_attrs", std::move(attributes))
      ("node_addrs", std::move(nodes))
      ("dedup_backend_type", dedup_backend_type);
  // clang-format on
  return *this;
}
