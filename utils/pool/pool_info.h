#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "platform/crypto/encryption.h"
#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// A resolved storage pool: where its data is reached, how it is encrypted, and the extras of its
/// URL's scheme. A plain value; distinct records may be used on any number of threads at once.
struct ZQPOOL_EXPORT Pool_Info {
  using Ext_Attrs_T = std::map<std::string, std::string>;
  using Node_Addrs_T = std::map<std::uint32_t, std::string>;

  std::string uuid;
  std::string name;
  std::string host_uuid;  ///< the host that the pool belongs to; not filled by resolution
  std::string url;        ///< where the chosen storage is reached
  bool device_exists = true;
  bool multidevice = false;  ///< the pool spans several storage devices
  bool server_side_encryption = false;
  Encryption_Algorithm cipher = ENCRYPT_NONE;
  std::string key;  ///< raw bytes of the data key
  std::string iv;   ///< raw bytes of the initialisation vector
  std::string preferred_source_address;
  std::string tenant_access_key;
  Ext_Attrs_T ext_attrs;    ///< object-store and backup-service extras
  Node_Addrs_T node_addrs;  ///< node number to base URL, of a deduplication pool on several devices
  std::string dedup_backend_type;

  /// Takes over the members of `object`, in the form that the store below writes. A member that is
  /// missing, of another type or not decodable leaves its field as it was.
  Pool_Info& operator<<(const Object& object);

  /// Writes every field into `object` under its own name: strings and flags as they are, `cipher`
  /// as its number, `key` and `iv` in Base64, the maps as objects (node numbers in decimal). What
  /// is stored holds the pool's secrets.
  const Pool_Info& operator>>(Object& object) const;
};
