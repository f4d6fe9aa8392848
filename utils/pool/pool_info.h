#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/crypto/encryption.h"
#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// A resolved storage pool: where its data is, how it is encrypted, and what else its URL's scheme
/// needs. A plain value.
struct ZQPOOL_EXPORT Pool_Info {
  using Ext_Attrs_T = std::map<std::string, std::string>;
  using Node_Addrs_T = std::map<std::uint32_t, std::string>;

  std::string uuid;
  std::string name;
  std::string host_uuid;  ///< the host that the pool belongs to; not set by parse_pool_info()
  std::string url;        ///< of the chosen storage
  bool device_exists = true;
  bool multidevice = false;  ///< the pool spans several storage devices
  bool server_side_encryption = false;
  Encryption_Algorithm cipher = ENCRYPT_NONE;
  std::string key;  ///< data key, raw bytes
  std::string iv;   ///< initialisation vector, raw bytes
  std::string preferred_source_address;
  std::string tenant_access_key;
  Ext_Attrs_T ext_attrs;    ///< attributes of object stores and backup services
  Node_Addrs_T node_addrs;  ///< base URL of each node of a multi-device deduplication pool
  std::string dedup_backend_type;

  /// Loads the fields from `object`, as written by operator>>. A field is unchanged if its member
  /// is missing, of another type or cannot be decoded.
  Pool_Info& operator<<(const Object& object);

  /// Stores every field in `object` under its own name: `cipher` as a number, `key` and `iv` in
  /// Base64, the maps as objects, node numbers in decimal. Contains the pool's secrets.
  const Pool_Info& operator>>(Object& object) const;
};
