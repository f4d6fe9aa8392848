#pragma once

#include <ace/Basic_Types.h>

#include <string>

#include "platform/json/json_spirit.h"
#include "utils/support/export.h"

/// The storage catalog: its pools, the devices that make them up, and on which device each file of
/// a pool lies.
///
/// Every operation takes the catalog service's `host` (name or address) and TCP `port`, whether to
/// use HTTPS (`ssl`), and the caller's `access_key` (not sent if empty). It sends one request and
/// blocks until the answer is there. It returns true on success. On failure it logs the reason,
/// returns false and leaves its outputs unchanged, except where documented. Only std::bad_alloc is
/// thrown. Operations share no state and may be called from any thread.
///
/// Operations that change the catalog send their request only once. If one fails after the request
/// was sent, the change may still have been made: see HTTP_Exchange_Report::outcome_unknown().
///
/// Operations with a `timeout` repeat failed requests, with random pauses that grow up to a minute.
/// `timeout` limits the total length of the pauses, in seconds: an attempt is made as long as less
/// than that has been slept. 0: one attempt. -1: no limit.
///
/// @code
///   Object device;
///   if (Pool_Metadata_Manager::get_device("catalog", 8443, true, key, "file:///srv/d1", device)) {
///     std::puts(json_spirit::object_get_str_or_throw(device, "uuid").c_str());
///   }
/// @endcode
class ZQPOOL_EXPORT Pool_Metadata_Manager {
 public:
  /// Gets the record of a pool. Repeats failed requests within `timeout`. Fails also when the
  /// catalog does not know exactly one such pool, and when memory runs out while the answer is read
  /// (no exception then).
  static bool get_pool_info(const std::string& host, unsigned short port, bool ssl,
                            const std::string& access_key, const std::string& pool_uuid,
                            Object& pool, int timeout);

  /// Gets the devices of a pool that hold the file `path`, and the file's `type`. `grouping`
  /// narrows the search; null: any. Succeeds also for a path unknown to the catalog; `type` and
  /// `devices` are then unchanged. Fails without a log message when the answer lacks either; `type`
  /// may have been written then.
  static bool get_located_devices(const std::string& host, unsigned short port, bool ssl,
                                  const std::string& access_key, const std::string& pool_uuid,
                                  const std::string& path, std::string& type, Array& devices,
                                  const char* grouping);

  /// Gets the record of the device with this URL. Fails also when the catalog does not know exactly
  /// one.
  static bool get_device(const std::string& host, unsigned short port, bool ssl,
                         const std::string& access_key, const std::string& device_url,
                         Object& device);

  /// Has the service examine the device at `url`, as part of pool `*pool_uuid` (null: of no pool),
  /// and gets what it found. If it found nothing, empties `device` and fails without a log message.
  static bool get_device_info(const std::string& host, unsigned short port, bool ssl,
                              const std::string& access_key, const std::string* pool_uuid,
                              const std::string& url, Object& device);

  /// Gets the record of the device with this UUID. Repeats failed requests, and those whose answer
  /// is not an object, within `timeout`. Fails also when the catalog does not know exactly one.
  static bool get_device_with_uuid(const std::string& host, unsigned short port, bool ssl,
                                   const std::string& access_key, const std::string& device_uuid,
                                   Object& device, int timeout);

  /// Records that device `device_uuid` of the pool holds `path`. `type` is the kind of path; it is
  /// the key under which the path is sent ("": "file"). `size` is in bytes; negative: unknown, not
  /// sent. A null `grouping` is not sent.
  static bool add_metadata(const std::string& host, unsigned short port, bool ssl,
                           const std::string& access_key, const std::string& pool_uuid,
                           const std::string& device_uuid, const std::string& type,
                           const std::string& path, const char* grouping, const ACE_INT64 size);

  /// Removes the records of `path`; if `grouping` is not null, only those of that grouping.
  static bool remove_metadata(const std::string& host, unsigned short port, bool ssl,
                              const std::string& access_key, const std::string& pool_uuid,
                              const std::string& path, const char* grouping);

  /// Gets the device of the pool that the catalog offers for new data. `device` is empty when it
  /// has none to offer.
  static bool offer_device(const std::string& host, unsigned short port, bool ssl,
                           const std::string& access_key, const std::string& pool_uuid,
                           Object& device);

  /// Binds the LAN-free device `dev_uuid` to the host `host_id`, whose operating system is
  /// `sysname`.
  static bool bind_host_for_lanfree_device(const std::string& host, unsigned short port, bool ssl,
                                           const std::string& access_key,
                                           const std::string& dev_uuid, const std::string& host_id,
                                           const std::string& sysname);
};
