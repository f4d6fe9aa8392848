#include "utils/pool/detail/filesystem_protocol.h"

#include <exception>
#include <utility>

#include "platform/json/json_dump.h"
#include "utils/pool/detail/answer.h"
#include "utils/pool/detail/snapshot_chain.h"
#include "utils/support/json_util.h"

using std::string;

namespace zqpool::detail {
namespace {

constexpr const char* fs_path = "/zq/r/scsipool/fs";
constexpr const char* mount_path = "/zq/r/scsipool/fs/mount";
constexpr const char* snapshot_path = "/zq/r/scsipool/fs/snapshot";

bool is_list_of_one(const json_spirit::Value& answer) {
  return is_array(answer) && answer.get_array().size() == 1;
}

}  // namespace

Service_Call Filesystem_Protocol::call(int method, const char* path) const {
  return {endpoint_, method, path};
}

Object Filesystem_Protocol::named(string name) const {
  return Object_Maker().insert("pool_id", pool_uuid_).insert("name", std::move(name)).take();
}

bool Filesystem_Protocol::create(string name, const string* snapshot_id,
                                 const string* mount_point) const {
  return call(HTTP_METHOD_POST, fs_path)
      .body(Object_Maker()
                .insert("pool_id", pool_uuid_)
                .insert("name", std::move(name))
                .insert_ptr("snapshot_id", snapshot_id)
                .insert_ptr("mount_point", mount_point)
                .take())
      .send();
}

bool Filesystem_Protocol::destroy(const string& name, int* status) const {
  return call(HTTP_METHOD_DELETE, fs_path)
      .raw("pool_id", pool_uuid_)
      .raw("name", name)
      .status(status)
      .send();
}

bool Filesystem_Protocol::rollback(string name) const {
  return call(HTTP_METHOD_PUT, fs_path).body(named(std::move(name))).send();
}

bool Filesystem_Protocol::describe(const string& name, Object& info,
                                   std::optional<bool> logging_error, int* status) const {
  int got_status = 0;
  Service_Call request(endpoint_, HTTP_METHOD_GET, fs_path);
  request.raw("pool_id", pool_uuid_).raw("name", name).status(&got_status);
  if (logging_error) request.logging_error(*logging_error);
  json_spirit::Value answer;
  if (!request.send(&answer) || !is_list_of_one(answer)) {
    if (status != nullptr) *status = got_status;
    return false;
  }
  return take_only_object(answer.get_array(), info) ||
         ZQ_LOG_AT(location_, LM_ERROR, "Invalid response %s of filesystem '%s'.\n",
                   JSON_Dump(answer, false).c_str(), name.c_str());
}

bool Filesystem_Protocol::mount(const string& name, string& mount_point) const {
  json_spirit::Value answer;
  if (!call(HTTP_METHOD_POST, mount_path).body(named(name)).send(&answer) || !is_object(answer)) {
    return ZQ_LOG_AT(location_, LM_ERROR, "Failed to mount filesystem %s.\n", name.c_str());
  }
  return json_spirit::object_get(answer.get_obj(), "mountpoint", mount_point);
}

bool Filesystem_Protocol::list_mounted(Array& info, const string* name) const {
  Service_Call request(endpoint_, HTTP_METHOD_GET, mount_path);
  request.raw("pool_id", pool_uuid_);
  if (unless_empty(name) != nullptr) request.raw("name", *name);
  json_spirit::Value answer;
  if (!request.send(&answer) || !is_array(answer)) {
    return ZQ_LOG_AT(location_, LM_ERROR, "Failed to get filesystem mount info.\n");
  }
  info.swap(answer.get_array());
  return true;
}

bool Filesystem_Protocol::move_mount(const string& name, const string& mount_point,
                                     string& reported) const {
  Object body = named(name);
  insert(body)("mount_point", mount_point);
  json_spirit::Value answer;
  if (!call(HTTP_METHOD_PUT, mount_path).body(std::move(body)).send(&answer) ||
      answer.type() != json_spirit::str_type) {
    return ZQ_LOG_AT(location_, LM_ERROR, "Failed to update filesystem %s mountpoint.\n",
                     name.c_str());
  }
  // Throws on purpose, as the answer is a string: callers rely on it, see the public headers.
  return json_spirit::object_get(answer.get_obj(), "mountpoint", reported);
}

bool Filesystem_Protocol::umount(const string& name) const {
  return call(HTTP_METHOD_DELETE, mount_path).raw("pool_id", pool_uuid_).raw("name", name).send();
}

bool Filesystem_Protocol::create_snapshot(const string& name, string& snapshot_id,
                                          bool recyclable) const {
  json_spirit::Value answer;
  const bool ok = call(HTTP_METHOD_POST, snapshot_path)
                      .body(Object_Maker()
                                .insert("pool_id", pool_uuid_)
                                .insert("names", Array_Maker().push(name).take())
                                .insert("recycle", recyclable)
                                .take())
                      .send(&answer);
  if (!ok || !is_list_of_one(answer)) {
    return ZQ_LOG_AT(location_, LM_ERROR, "Failed to create filesystem %s snapshot.\n",
                     name.c_str());
  }
  try {
    const Const_Object_Throw_Extractor extract(answer.get_array().back().get_obj());
    return extract("snapshot_id", snapshot_id, true);
  } catch (const std::exception& error) {
    return ZQ_LOG_AT(location_, LM_ERROR, "Invalid response of filesystem '%s', %s\n", name.c_str(),
                     error.what());
  }
}

bool Filesystem_Protocol::delete_snapshot(const string& snapshot_id, bool delete_empty_fs) const {
  return call(HTTP_METHOD_DELETE, snapshot_path)
      .raw("pool_id", pool_uuid_)
      .raw("snapshot_id", snapshot_id)
      .flag("delete_empty_fs", delete_empty_fs)
      .send();
}

bool Filesystem_Protocol::describe_snapshot(const string& snapshot_id, Object& info) const {
  json_spirit::Value answer;
  const bool ok = call(HTTP_METHOD_GET, snapshot_path)
                      .raw("pool_id", pool_uuid_)
                      .raw("snapshot_id", snapshot_id)
                      .send(&answer);
  if (!ok || !is_list_of_one(answer)) {
    return ZQ_LOG_AT(location_, LM_ERROR, "Failed to get snapshot %s info.\n", snapshot_id.c_str());
  }
  return take_only_object(answer.get_array(), info) ||
         ZQ_LOG_AT(location_, LM_ERROR, "Invalid response %s of snapshot '%s'.\n",
                   JSON_Dump(answer, false).c_str(), snapshot_id.c_str());
}

bool Filesystem_Protocol::get_previous_snapshot(const string& snapshot_id, Object& info) const {
  const auto describe = [&](Object& current) { return describe_snapshot(snapshot_id, current); };
  const auto list = [&](const string& fs_name, json_spirit::Value& answer) {
    return call(HTTP_METHOD_GET, snapshot_path)
        .raw("pool_id", pool_uuid_)
        .raw("name", fs_name)
        .send(&answer);
  };
  const auto report_bad_entry = [&](const json_spirit::Value& answer, const string& fs_name) {
    ZQ_LOG_AT(location_, LM_ERROR, "Invalid value %s of filesystem '%s'.\n",
              JSON_Dump(answer, false).c_str(), fs_name.c_str());
  };
  return detail::get_previous_snapshot(location_, snapshot_id, info, describe, list,
                                       report_bad_entry);
}

}  // namespace zqpool::detail
