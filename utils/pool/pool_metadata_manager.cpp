#include "utils/pool/pool_metadata_manager.h"

#include <exception>
#include <utility>

#include "utils/pool/detail/answer.h"
#include "utils/support/json_util.h"
#include "utils/support/log.h"
#include "utils/support/retry.h"
#include "utils/support/service_call.h"

using std::string;
using zqpool::detail::Attempt;
using zqpool::detail::is_object;
using zqpool::detail::Service_Call;

namespace {

/// Takes the record out of an answer whose "rows" hold exactly one.
bool take_only_row(json_spirit::Value& answer, Object& record) {
  Array* const rows = json_spirit::object_get_array(answer.get_obj(), "rows");
  return rows != nullptr && zqpool::detail::take_only_object(*rows, record);
}

}  // namespace

bool Pool_Metadata_Manager::get_pool_info(const string& host, unsigned short port, bool ssl,
                                          const string& access_key, const string& pool_uuid,
                                          Object& pool, int timeout) {
  Service_Call call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_GET,
                    "/zq/r/storage/catalog/pool");
  call.field("uuid", pool_uuid);
  json_spirit::Value answer;
  if (!zqpool::detail::retry(ZQ_HERE, timeout,
                             [&] { return call.send(&answer) ? Attempt::done : Attempt::again; })) {
    return ZQ_ERROR("Failed to get pool info from pool '%s'.\n", pool_uuid.c_str());
  }
  try {
    Array& rows = answer.get_obj()["rows"].get_array();
    if (rows.size() == 1) {
      pool.swap(rows.front().get_obj());
      return true;
    }
  } catch (const std::exception& error) {
    return ZQ_ERROR("Failed to get pool info: %s\n", error.what());
  }
  return ZQ_ERROR("Failed to get pool '%s' info.\n", pool_uuid.c_str());
}

bool Pool_Metadata_Manager::get_located_devices(const string& host, unsigned short port, bool ssl,
                                                const string& access_key, const string& pool_uuid,
                                                const string& path, string& type, Array& devices,
                                                const char* grouping) {
  json_spirit::Value answer;
  const bool ok = Service_Call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_PUT,
                               "/zq/r/storage/catalog/device/metadata")
                      .body(Object_Maker()
                                .insert("pool_uuid", pool_uuid)
                                .insert("path", path)
                                .insert_ptr("grouping", grouping)
                                .take())
                      .send(&answer);
  if (!ok || !is_object(answer)) {
    return ZQ_ERROR("Failed to get located devices for '%s' in pool '%s'.\n", path.c_str(),
                    pool_uuid.c_str());
  }
  Object& located = answer.get_obj();
  return located.empty() || (json_spirit::object_get(located, "type", type) &&
                             json_spirit::object_get_swap(located, "devices", devices));
}

bool Pool_Metadata_Manager::get_device(const string& host, unsigned short port, bool ssl,
                                       const string& access_key, const string& device_url,
                                       Object& device) {
  json_spirit::Value answer;
  const bool ok = Service_Call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_GET,
                               "/zq/r/storage/catalog/device")
                      .field("url", device_url)
                      .send(&answer);
  if (!ok || !is_object(answer)) {
    return ZQ_ERROR("Failed to GET data from '%s'.\n", device_url.c_str());
  }
  return take_only_row(answer, device) ||
         ZQ_ERROR("Failed to get device with url: %s\n", device_url.c_str());
}

bool Pool_Metadata_Manager::get_device_info(const string& host, unsigned short port, bool ssl,
                                            const string& access_key, const string* pool_uuid,
                                            const string& url, Object& device) {
  json_spirit::Value answer;
  const bool ok =
      Service_Call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_POST,
                   "/zq/r/storage/catalog/device/info")
          .body(Object_Maker().insert_ptr("pool_uuid", pool_uuid).insert("url", url).take())
          .send(&answer);
  if (!ok || !is_object(answer)) return ZQ_ERROR("Failed to check device info.\n");
  device.swap(answer.get_obj());
  return !device.empty();
}

bool Pool_Metadata_Manager::get_device_with_uuid(const string& host, unsigned short port, bool ssl,
                                                 const string& access_key,
                                                 const string& device_uuid, Object& device,
                                                 int timeout) {
  Service_Call call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_GET,
                    "/zq/r/storage/catalog/device");
  call.field("uuid", device_uuid);
  json_spirit::Value answer;
  if (!zqpool::detail::retry(ZQ_HERE, timeout, [&] {
        return call.send(&answer) && is_object(answer) ? Attempt::done : Attempt::again;
      })) {
    return ZQ_ERROR("Failed to GET device with '%s'.\n", device_uuid.c_str());
  }
  return take_only_row(answer, device) ||
         ZQ_ERROR("Failed to get device with uuid: %s\n", device_uuid.c_str());
}

bool Pool_Metadata_Manager::add_metadata(const string& host, unsigned short port, bool ssl,
                                         const string& access_key, const string& pool_uuid,
                                         const string& device_uuid, const string& type,
                                         const string& path, const char* grouping,
                                         const ACE_INT64 size) {
  json_spirit::Value body;
  // The type is the key on purpose: the catalog tells kinds of paths apart by it.
  insert(to_new_object(body))("pool_uuid", pool_uuid)("device_uuid", device_uuid)(
      type.empty() ? "file" : type, path);
  if (size >= 0) insert(body.get_obj())("size", size);
  if (grouping != nullptr) insert(body.get_obj())("grouping", grouping);
  return Service_Call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_POST,
                      "/zq/r/storage/catalog/device/metadata")
             .body(std::move(body))
             .send() ||
         ZQ_ERROR("Failed to add metadata to pool '%s'.\n", pool_uuid.c_str());
}

bool Pool_Metadata_Manager::remove_metadata(const string& host, unsigned short port, bool ssl,
                                            const string& access_key, const string& pool_uuid,
                                            const string& path, const char* grouping) {
  Service_Call call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_DELETE,
                    "/zq/r/storage/catalog/device/metadata");
  call.field("pool_uuid", pool_uuid).field("path", path);
  if (grouping != nullptr) call.field("grouping", grouping);
  return call.send() || ZQ_ERROR("Failed to remove metadata from pool '%s'.\n", pool_uuid.c_str());
}

bool Pool_Metadata_Manager::offer_device(const string& host, unsigned short port, bool ssl,
                                         const string& access_key, const string& pool_uuid,
                                         Object& device) {
  json_spirit::Value answer;
  const bool ok = Service_Call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_GET,
                               "/zq/r/storage/catalog/device/info")
                      .field("pool_uuid", pool_uuid)
                      .send(&answer);
  if (!ok || !is_object(answer)) {
    return ZQ_ERROR("Failed to offer device from pool '%s'.\n", pool_uuid.c_str());
  }
  device.swap(answer.get_obj());
  return true;
}

bool Pool_Metadata_Manager::bind_host_for_lanfree_device(const string& host, unsigned short port,
                                                         bool ssl, const string& access_key,
                                                         const string& dev_uuid,
                                                         const string& host_id,
                                                         const string& sysname) {
  return Service_Call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_PUT,
                      "/zq/r/storage/catalog/device")
             .field("uuid", dev_uuid)
             .body(Object_Maker().insert("host_id", host_id).insert("sysname", sysname).take())
             .send() ||
         ZQ_ERROR("Failed to bind host to device '%s'.\n", dev_uuid.c_str());
}
