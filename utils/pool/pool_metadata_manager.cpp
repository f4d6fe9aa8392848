#include "utils/pool/pool_metadata_manager.h"

#include <exception>

#include "utils/support/json_util.h"
#include "utils/support/log.h"
#include "utils/support/retry.h"
#include "utils/support/service_call.h"

using std::string;
using zqpool::detail::Attempt;
using zqpool::detail::Service_Call;

namespace {

bool is_object(const json_spirit::Value& value) {
  return value.type() == json_spirit::obj_type;
}

/// The record of an answer whose "rows" hold that one record and nothing else.
bool take_only_row(json_spirit::Value& answer, Object& record) {
  Array* const rows = json_spirit::object_get_array(answer.get_obj(), "rows");
  if (rows == nullptr || rows->size() != 1 || !is_object(rows->front())) return false;
  record.swap(rows->front().get_obj());
  return true;
}

}  // namespace

bool Pool_Metadata_Manager::get_pool_info(const string& host, unsigned short port, bool ssl,
                                          const string& access_key, const string& pool_uuid,
                                          Object& pool, int timeout) {
  Service_Call call({host.c_str(), port, ssl, access_key.c_str()}, HTTP_METHOD_GET,
                    "/zq/r/storage/catalog/pool");
  call.field("uuid", pool_uuid.c_str());
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
                      .field("url", device_url.c_str())
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
  call.field("uuid", device_uuid.c_str());
  json_spirit::Value answer;
  if (!zqpool::detail::retry(ZQ_HERE, timeout, [&] {
        return call.send(&answer) && is_object(answer) ? Attempt::done : Attempt::again;
      })) {
    return ZQ_ERROR("Failed to GET device with '%s'.\n", device_uuid.c_str());
  }
  return take_only_row(answer, device) ||
         ZQ_ERROR("Failed to get device with uuid: %s\n", device_uuid.c_str());
}
