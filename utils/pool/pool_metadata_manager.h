#pragma once

#include <ace/Basic_Types.h>

#include <string>

#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// The storage catalog: its pools, the devices that make them up, and on which device each file of
/// a pool lies.
///
/// Every operation first takes where the catalog's service is (host name or address, TCP port,
/// HTTPS when `ssl`) and the caller's access key (none is sent when it is empty). It makes one
/// exchange with the service, or with a timeout a series of them, and blocks its thread meanwhile.
/// Operations share nothing, so any number of threads may call them at once. False means that the
/// wanted answer did not come; the reason is in the log, except where said otherwise, and outputs
/// are as they were, except where said otherwise. Of exceptions only std::bad_alloc leaves an
/// operation.
///
/// The operations that change the catalog send their request once. When they return false although
/// the request went out, the change may have been made (HTTP_Exchange_Report::outcome_unknown()).
///
/// A `timeout` bounds, in seconds, the time slept between attempts: another attempt follows while
/// less than that has been slept. 0 is one attempt, -1 no limit. The pauses grow, up to a minute.
///
/// @code
///   Object device;
///   if (Pool_Metadata_Manager::get_device("catalog", 8443, true, key, "file:///srv/d1", device)) {
///     std::puts(json_spirit::object_get_str_or_throw(device, "uuid").c_str());
///   }
/// @endcode
class ZQPOOL_EXPORT Pool_Metadata_Manager {
 public:
  /// The catalog's record of one pool, into `pool`. Tries again while the exchange fails, within
  /// `timeout`. False also when the catalog does not know exactly one such pool. Memory that runs
  /// out while the answer is read counts as a failure, too.
  static bool get_pool_info(const std::string& host, unsigned short port, bool ssl,
                            const std::string& access_key, const std::string& pool_uuid,
                            Object& pool, int timeout);

  /// The devices of pool `pool_uuid` on which the file `path` lies, into `devices`, and the file's
  /// type, into `type`. `grouping` narrows the question; null: not asked for. True also for a path
  /// that the catalog does not know; both outputs then keep what they had. False, without a word in
  /// the log, when the answer lacks one of the two; `type` may then have been written.
  static bool get_located_devices(const std::string& host, unsigned short port, bool ssl,
                                  const std::string& access_key, const std::string& pool_uuid,
                                  const std::string& path, std::string& type, Array& devices,
                                  const char* grouping);

  /// The catalog's record of the device with this URL, into `device`. False also when the catalog
  /// does not know exactly one.
  static bool get_device(const std::string& host, unsigned short port, bool ssl,
                         const std::string& access_key, const std::string& device_url,
                         Object& device);

  /// What the service finds out about the device at `url`, as part of the pool that `pool_uuid`
  /// points to (null: of none), into `device`. False, with `device` emptied and without a word in
  /// the log, when it finds out nothing.
  static bool get_device_info(const std::string& host, unsigned short port, bool ssl,
                              const std::string& access_key, const std::string* pool_uuid,
                              const std::string& url, Object& device);

  /// The catalog's record of the device with this UUID, into `device`. Tries again while the
  /// exchange fails or answers something else than an object, within `timeout`. False also when the
  /// catalog does not know exactly one.
  static bool get_device_with_uuid(const std::string& host, unsigned short port, bool ssl,
                                   const std::string& access_key, const std::string& device_uuid,
                                   Object& device, int timeout);

  /// Records that `path` of pool `pool_uuid` lies on device `device_uuid`. `type` is the kind of
  /// path, and the key it is sent under ("" stands for "file"). `size` is in bytes; a negative one
  /// is not known and not sent. `grouping` is not sent when it is null.
  static bool add_metadata(const std::string& host, unsigned short port, bool ssl,
                           const std::string& access_key, const std::string& pool_uuid,
                           const std::string& device_uuid, const std::string& type,
                           const std::string& path, const char* grouping, const ACE_INT64 size);

  /// Removes what is recorded of `path` of pool `pool_uuid`, where `grouping` is not null only what
  /// is recorded under it.
  static bool remove_metadata(const std::string& host, unsigned short port, bool ssl,
                              const std::string& access_key, const std::string& pool_uuid,
                              const std::string& path, const char* grouping);

  /// Has the catalog offer a device of pool `pool_uuid` for new data, into `device`, which is empty
  /// when the catalog has none to offer.
  static bool offer_device(const std::string& host, unsigned short port, bool ssl,
                           const std::string& access_key, const std::string& pool_uuid,
                           Object& device);

  /// Binds the LAN-free device `dev_uuid` to the host `host_id`, whose system is named `sysname`.
  static bool bind_host_for_lanfree_device(const std::string& host, unsigned short port, bool ssl,
                                           const std::string& access_key,
                                           const std::string& dev_uuid, const std::string& host_id,
                                           const std::string& sysname);
};
