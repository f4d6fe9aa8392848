#include "utils/pool/scsi_target_manager.h"

#include <ace/INET_Addr.h>
#include <ace/OS_NS_strings.h>

#include <boost/algorithm/string/case_conv.hpp>
#include <cstdint>
#include <exception>
#include <utility>

#include "platform/host/host_id.h"
#include "platform/host/initiators.h"
#include "platform/host/uuid.h"
#include "platform/json/json_dump.h"
#include "platform/net/address.h"
#include "platform/net/uri.h"
#include "utils/pool/detail/answer.h"
#include "utils/pool/detail/filesystem_protocol.h"
#include "utils/pool/detail/parse_url.h"
#include "utils/pool/detail/snapshot_chain.h"
#include "utils/support/json_util.h"
#include "utils/support/log.h"
#include "utils/support/member_reader.h"
#include "utils/support/service_call.h"

using std::string;
using zqpool::detail::Filesystem_Protocol;
using zqpool::detail::is_array;
using zqpool::detail::is_object;
using zqpool::detail::Member_Reader;
using zqpool::detail::Service_Call;
using zqpool::detail::Service_Endpoint;
using zqpool::detail::take_only_object;
using zqpool::detail::unless_empty;

namespace {

constexpr const char* lun_path = "/zq/r/scsipool/lun";
constexpr const char* lun_export_path = "/zq/r/scsipool/lun/export";
constexpr const char* snapshot_path = "/zq/r/scsipool/snapshot";
constexpr const char* snapshot_export_path = "/zq/r/scsipool/snapshot/export";

/// A row of a table of names, whose last row has a null key. The length belongs to the agreed
/// layout of such tables, though nothing here reads it.
template <typename T>
struct Key2_Value_T {
  const char* key;
  std::uint64_t len;
  T value;
};

constexpr Key2_Value_T<SCSI_Target_Manager::Retention_Type> type_table[] = {
    {"normal", 6, SCSI_Target_Manager::TYPE_NORMAL},
    {"newest", 6, SCSI_Target_Manager::TYPE_NEWEST},
    {nullptr, 0, SCSI_Target_Manager::TYPE_NONE},
};

Service_Endpoint endpoint_of(const SCSI_Target_Manager& pool) {
  return {pool.host_.c_str(), pool.port_, pool.ssl_, pool.access_key_.c_str()};
}

Service_Call call(const SCSI_Target_Manager& pool, int method, const char* path) {
  return {endpoint_of(pool), method, path};
}

Filesystem_Protocol filesystems(const SCSI_Target_Manager& pool,
                                const zqpool::detail::Source_Location& location) {
  return {location, endpoint_of(pool), pool.pool_uuid_};
}

/// The body of an export of a LUN or snapshot.
Object export_body(const SCSI_Target_Manager& pool, const char* key, const string& id,
                   const char* transport, const char* target) {
  Object body = Object_Maker().insert("pool_id", pool.pool_uuid_).insert(key, id).take();
  // Both or none: the service would have to guess the other.
  if (transport != nullptr && target != nullptr) insert(body)("type", transport)("target", target);
  return body;
}

/// Reads the answer to a creation. Only an exported LUN must have a number.
bool read_new_lun(Member_Reader& read, string& lun_id, int& lun, bool to_export) {
  return read("lun_id", lun_id) && (read("lun_num", lun) || !to_export);
}

}  // namespace

SCSI_Target_Manager::SCSI_Target_Manager(const string& host, unsigned short port, bool ssl,
                                         const string& access_key, const string& pool_uuid,
                                         const std::vector<string>* initiators)
    : host_(host), port_(port), ssl_(ssl), access_key_(access_key), pool_uuid_(pool_uuid) {
  if (initiators != nullptr) initiators_ = *initiators;
  init();
}

SCSI_Target_Manager::SCSI_Target_Manager(const string& url, const string& access_key,
                                         const string& pool_uuid,
                                         const std::vector<string>* initiators)
    : access_key_(access_key), pool_uuid_(pool_uuid) {
  if (initiators != nullptr) initiators_ = *initiators;
  URI uri;
  zqpool::detail::parse_url(ZQ_HERE, url, uri);
  host_ = uri.host();
  port_ = uri.port();
  ssl_ = uri.is_ssl();
  init();
}

void SCSI_Target_Manager::init() {
  host_uuid_ = Host_ID::instance()->c_str();
}

const char* SCSI_Target_Manager::type_to_name(int type) {
  const auto* row = type_table;
  while (row->key != nullptr && row->value != type)
    ++row;
  return row->key;
}

// --- The pool ----------------------------------------------------------------------------------

bool SCSI_Target_Manager::get_scsi_pool_info(Object& info) {
  json_spirit::Value answer;
  const bool ok = call(*this, HTTP_METHOD_GET, "/zq/r/pool")
                      .raw("type", "scsi")
                      .raw("pool_id", pool_uuid_)
                      .retries(0)
                      .send(&answer);
  if (!ok) return ZQ_ERROR("Failed to get scsi pool '%s' info.\n", pool_uuid_.c_str());
  if (!is_array(answer)) {
    return ZQ_ERROR("Failed to get scsi pool '%s' info, resp=%s.\n", pool_uuid_.c_str(),
                    JSON_Dump(answer, false).c_str());
  }
  if (!take_only_object(answer.get_array(), info)) {
    return ZQ_ERROR("Invalid value %s of scsi pool '%s'.\n", JSON_Dump(answer, false).c_str(),
                    pool_uuid_.c_str());
  }
  json_spirit::object_get(info, "type", scsi_type_);
  return true;
}

bool SCSI_Target_Manager::get_scsi_type() {
  if (!scsi_type_.empty()) return true;
  Object info;
  return get_scsi_pool_info(info);
}

string SCSI_Target_Manager::get_scsi_pool_portal() const {
  constexpr unsigned short iscsi_port = 3260;
  string text;
  if (ip_extended_format(host_.c_str(), text) != -1) return text + ":3260";
  ACE_INET_Addr address((host_ + ":3260").c_str());
  address.set_port_number(iscsi_port);  // lost if the name was not resolved
  return ACE_Addr_String(address, true).c_str();
}

bool SCSI_Target_Manager::get_scsi_pool_target_size(string& target, ACE_UINT64& size) {
  Object info;
  if (!get_scsi_pool_info(info)) {
    return ZQ_ERROR("Failed to get SCSI pool info of %s \n", pool_uuid_.c_str());
  }
  Member_Reader read(info);
  return (read("target", target) && read("total_size", size)) ||
         ZQ_ERROR("Invalid value from SCSI pool: %s\n", read.error());
}

string SCSI_Target_Manager::generate_target_name() const {
  string uuid;
  uuid_string(uuid, false);
  string name = "iqn.2026-11.org.zqpool:" + uuid;
  boost::algorithm::to_lower(name);  // other platforms may write UUIDs in upper case
  return name;
}

// --- LUNs --------------------------------------------------------------------------------------

bool SCSI_Target_Manager::create_lun(const ACE_UINT64 size, string& lun_id, int& lun,
                                     int block_size, bool to_export, bool with_acls,
                                     Retention_Type retention) {
  const char* const retention_name = type_to_name(retention);
  if (retention_name == nullptr) {
    return ZQ_ERROR("Invalid retention type %d.\n", static_cast<int>(retention));
  }
  Object body = Object_Maker()
                    .insert("pool_id", pool_uuid_)
                    .insert("lun_size", size)
                    .insert("export", to_export)
                    .insert("retention_type", retention_name)
                    .take();
  if (block_size > 0) insert(body)("block_size", block_size);
  if (with_acls && !get_acls(body, nullptr)) return false;
  json_spirit::Value answer;
  if (!call(*this, HTTP_METHOD_POST, lun_path).body(std::move(body)).send(&answer) ||
      !is_object(answer)) {
    return false;
  }
  Member_Reader read(answer.get_obj());
  return read_new_lun(read, lun_id, lun, to_export) ||
         ZQ_ERROR("Failed to create lun in %s :%s\n", pool_uuid_.c_str(), read.error());
}

bool SCSI_Target_Manager::create_lun(const string& snapshot_id, string& lun_id, int& lun,
                                     bool to_export) const {
  json_spirit::Value answer;
  const bool ok = call(*this, HTTP_METHOD_POST, lun_path)
                      .body(Object_Maker()
                                .insert("pool_id", pool_uuid_)
                                .insert("snapshot_id", snapshot_id)
                                .insert("export", to_export)
                                .take())
                      .send(&answer);
  if (!ok || !is_object(answer)) return false;
  Member_Reader read(answer.get_obj());
  return read_new_lun(read, lun_id, lun, to_export) ||
         ZQ_ERROR("Failed to create lun in %s based on snapshot %s: %s\n", pool_uuid_.c_str(),
                  snapshot_id.c_str(), read.error());
}

bool SCSI_Target_Manager::create_newest_lun(const ACE_UINT64 size, string& lun_id, int& lun) {
  return create_lun(size, lun_id, lun, -1, true, true, TYPE_NEWEST);
}

bool SCSI_Target_Manager::export_lun(const string& lun_id, int& lun_num, const char* transport,
                                     const char* target) {
  Object body = export_body(*this, "lun_id", lun_id, transport, target);
  if (!get_acls(body, transport)) return false;
  json_spirit::Value answer;
  if (!call(*this, HTTP_METHOD_POST, lun_export_path).body(std::move(body)).send(&answer) ||
      !is_object(answer)) {
    return false;
  }
  Member_Reader read(answer.get_obj());
  return read("lun_num", lun_num) || ZQ_ERROR("Failed to export lun(id=%s) in pool(id=%s): %s\n",
                                              lun_id.c_str(), pool_uuid_.c_str(), read.error());
}

bool SCSI_Target_Manager::unexport_lun(const string& lun_id, bool force) const {
  return call(*this, HTTP_METHOD_DELETE, lun_export_path)
      .raw("pool_id", pool_uuid_)
      .raw("lun_id", lun_id)
      .flag("force", force)
      .send();
}

bool SCSI_Target_Manager::rollback_lun(const string& lun_id, bool force) const {
  json_spirit::Value answer;
  return call(*this, HTTP_METHOD_PUT, lun_path)
             .body(Object_Maker()
                       .insert("pool_id", pool_uuid_)
                       .insert("lun_id", lun_id)
                       .insert("force", force)
                       .take())
             .send(&answer) &&
         is_object(answer);
}

bool SCSI_Target_Manager::delete_lun(const string& lun_id, bool force, int* status) const {
  return call(*this, HTTP_METHOD_DELETE, lun_path)
      .raw("pool_id", pool_uuid_)
      .raw("lun_id", lun_id)
      .flag("force", force)
      .status(status)
      .send();
}

bool SCSI_Target_Manager::get_scsi_pool_lun_info(const string& lun_id, Object& info) const {
  json_spirit::Value answer;
  const bool ok = call(*this, HTTP_METHOD_GET, lun_path)
                      .raw("pool_id", pool_uuid_)
                      .raw("lun_id", lun_id)
                      .send(&answer);
  if (!ok || !is_array(answer)) {
    return ZQ_ERROR("Failed to get lun '%s' info.\n", lun_id.c_str());
  }
  return take_only_object(answer.get_array(), info) ||
         ZQ_ERROR("Invalid value %s of lun '%s'.\n", JSON_Dump(answer, false).c_str(),
                  lun_id.c_str());
}

bool SCSI_Target_Manager::list_scsi_pool_luns(Array& luns) const {
  json_spirit::Value answer;
  const bool ok = call(*this, HTTP_METHOD_GET, lun_path).raw("pool_id", pool_uuid_).send(&answer);
  if (!ok || !is_array(answer)) return ZQ_ERROR("Failed to get luns.\n");
  luns.swap(answer.get_array());
  return true;
}

bool SCSI_Target_Manager::get_lun_num(const string& lun_id, int& lun_num) const {
  Object info;
  if (!get_scsi_pool_lun_info(lun_id, info)) {
    return ZQ_ERROR("Failed to get lun(%s) info.\n", lun_id.c_str());
  }
  try {
    lun_num = info["lun_num"].get_int();
  } catch (const std::exception& error) {
    return ZQ_ERROR("Failed to get lun(%s) info: %s.\n", lun_id.c_str(), error.what());
  }
  return true;
}

bool SCSI_Target_Manager::get_serial_number(const string& lun_id, string& serial_number) const {
  if (lun_id.empty()) return false;
  Object info;
  if (!get_scsi_pool_lun_info(lun_id, info)) {
    return ZQ_ERROR("Failed to get lun(%s) info.\n", lun_id.c_str());
  }
  return json_spirit::object_get_swap(info, "vpd_serial_number", serial_number);
}

// --- Snapshots of LUNs -------------------------------------------------------------------------

bool SCSI_Target_Manager::create_snapshot(const string& lun_id, string& snapshot_id,
                                          bool recyclable) const {
  json_spirit::Value answer;
  const bool ok = call(*this, HTTP_METHOD_POST, snapshot_path)
                      .body(Object_Maker()
                                .insert("pool_id", pool_uuid_)
                                .insert("lun_id", lun_id)
                                .insert("recycle", recyclable)
                                .take())
                      .send(&answer);
  if (!ok || !is_object(answer)) return false;
  Member_Reader read(answer.get_obj());
  return read("snapshot_id", snapshot_id) ||
         ZQ_ERROR("Failed to get snapshot id: %s\n", read.error());
}

bool SCSI_Target_Manager::share_snapshot(const string& snapshot_id, const char* transport,
                                         const char* target, int& lun) {
  Object body = export_body(*this, "snapshot_id", snapshot_id, transport, target);
  if (!get_acls(body, transport)) return false;
  json_spirit::Value answer;
  if (!call(*this, HTTP_METHOD_POST, snapshot_export_path).body(std::move(body)).send(&answer) ||
      !is_object(answer)) {
    return false;
  }
  Member_Reader read(answer.get_obj());
  return read("lun_num", lun) || ZQ_ERROR("Failed to share snapshot: %s\n", read.error());
}

bool SCSI_Target_Manager::unexport_snapshot(const string& snapshot_id, int lun_num) const {
  return call(*this, HTTP_METHOD_DELETE, snapshot_export_path)
      .raw("pool_id", pool_uuid_)
      .raw("snapshot_id", snapshot_id)
      .raw("lun_num", std::to_string(lun_num))
      .send();
}

bool SCSI_Target_Manager::delete_snapshot(const string& snapshot_id,
                                          const bool delete_empty_lun) const {
  return call(*this, HTTP_METHOD_DELETE, snapshot_path)
      .raw("pool_id", pool_uuid_)
      .raw("snapshot_id", snapshot_id)
      .flag("delete_empty_lun", delete_empty_lun)
      .send();
}

bool SCSI_Target_Manager::get_snapshot_info(const string& snapshot_id, Object& info,
                                            int lun) const {
  json_spirit::Value answer;
  const bool ok = call(*this, HTTP_METHOD_GET, snapshot_path)
                      .raw("pool_id", pool_uuid_)
                      .raw("snapshot_id", snapshot_id)
                      .send(&answer);
  if (!ok || !is_array(answer)) {
    return ZQ_ERROR("Failed to get snapshot '%s' info.\n", snapshot_id.c_str());
  }
  if (take_only_object(answer.get_array(), info)) return true;
  for (json_spirit::Value& i : answer.get_array()) {
    if (!is_object(i))
      return ZQ_EMERGENCY("Unexpected error in %s:%d, i is not object!\n", __FILE__, __LINE__);
    int lun_num = 0;
    if (!json_spirit::object_get(i.get_obj(), "lun_num", lun_num)) {
      return ZQ_ERROR("Invalid value %s of snapshot '%s'.\n", JSON_Dump(answer, false).c_str(),
                      snapshot_id.c_str());
    }
    if (lun_num == lun) {
      info.swap(i.get_obj());
      return true;
    }
  }
  return false;
}

bool SCSI_Target_Manager::get_snapshot_serial_number(const string& snapshot_id, int lun_num,
                                                     string& serial_number) const {
  Object info;
  if (!get_snapshot_info(snapshot_id, info, lun_num)) {
    return ZQ_ERROR("Failed to get snapshot(%s) info.\n", snapshot_id.c_str());
  }
  return json_spirit::object_get_swap(info, "vpd_serial_number", serial_number);
}

bool SCSI_Target_Manager::get_previous_snapshot(const string& snapshot_id, Object& info) const {
  const auto describe = [&](Object& current) {
    return get_snapshot_info(snapshot_id, current, -1);
  };
  const auto list = [&](const string& lun_id, json_spirit::Value& answer) {
    return call(*this, HTTP_METHOD_GET, snapshot_path)
        .raw("pool_id", pool_uuid_)
        .raw("lun_id", lun_id)
        .send(&answer);
  };
  const auto report_bad_entry = [](const json_spirit::Value& answer, const string& lun_id) {
    ZQ_ERROR("Invalid value %s of LUN '%s'.\n", JSON_Dump(answer, false).c_str(), lun_id.c_str());
  };
  return zqpool::detail::get_previous_snapshot(ZQ_HERE, snapshot_id, info, describe, list,
                                               report_bad_entry);
}

bool SCSI_Target_Manager::cal_snapshot_size(const string& snapshot_id, ACE_UINT64& size,
                                            bool is_lun) const {
  Object current;
  Object previous;
  if (is_lun) {
    if (!get_snapshot_info(snapshot_id, current, -1)) {
      return ZQ_ERROR("Failed to calculate snapshot size: failed to get snapshot info\n");
    }
    get_previous_snapshot(snapshot_id, previous);
  } else {
    if (!get_filesystem_snapshot_info(snapshot_id, current)) {
      return ZQ_ERROR(
          "Failed to calculate snapshot size: failed to get filesystem snapshot info\n");
    }
    get_previous_filesystem_snapshot(snapshot_id, previous);
  }
  return zqpool::detail::added_size(ZQ_HERE, current, previous, size);
}

// --- Access ------------------------------------------------------------------------------------

bool SCSI_Target_Manager::get_acls(Object& params, const char* transport) {
  if (transport == nullptr && (!get_scsi_type() || scsi_type_.empty())) {
    return ZQ_ERROR("Failed to get scsi type for pool %s.\n", pool_uuid_.c_str());
  }
  if (initiators_.empty()) {
    // On purpose: a pool's iSCSI outranks another `transport`.
    const bool asked_for = transport != nullptr && ACE_OS::strcasecmp(transport, "iSCSI") == 0;
    if (asked_for || scsi_type_ == "iSCSI") {
      get_iscsi_initiator_name(initiators_);
    } else {
      FC_Info fibre_channel;
      fibre_channel.init();
      fibre_channel.get_port_wwn(initiators_);
    }
  }
  if (initiators_.empty()) return ZQ_ERROR("Failed to get initiator name.\n");
  Array acls;
  for (const string& initiator : initiators_) {
    acls.emplace_back(
        Object_Maker().insert("initiator", initiator).insert("host_uuid", host_uuid_).take());
  }
  insert(params)("acls", std::move(acls));
  return true;
}

bool SCSI_Target_Manager::add_lun_acls(const string& lun_id, const char* transport) {
  Object body = Object_Maker()
                    .insert("pool_id", pool_uuid_)
                    .insert("lun_id", lun_id)
                    .insert("action", "add")
                    .take();
  return get_acls(body, transport) &&
         call(*this, HTTP_METHOD_PUT, lun_export_path).body(std::move(body)).send();
}

bool SCSI_Target_Manager::add_snapshot_acls(const string& snapshot_id, int lun) {
  Object body = Object_Maker()
                    .insert("pool_id", pool_uuid_)
                    .insert("snapshot_id", snapshot_id)
                    .insert("lun_num", lun)
                    .insert("action", "add")
                    .take();
  return get_acls(body, nullptr) &&
         call(*this, HTTP_METHOD_PUT, snapshot_export_path).body(std::move(body)).send();
}

// --- Filesystems -------------------------------------------------------------------------------

bool SCSI_Target_Manager::create_filesystem(string name, const string* snapshot_id,
                                            const string* mount_point) const {
  return filesystems(*this, ZQ_HERE)
      .create(std::move(name), unless_empty(snapshot_id), unless_empty(mount_point));
}

bool SCSI_Target_Manager::delete_filesystem(const string& name, int* status) const {
  return filesystems(*this, ZQ_HERE).destroy(name, status);
}

bool SCSI_Target_Manager::rollback_filesystem(string name) const {
  return filesystems(*this, ZQ_HERE).rollback(std::move(name));
}

bool SCSI_Target_Manager::list_filesystem_info(const string& name, Object& info, bool logging_error,
                                               int* status) const {
  return filesystems(*this, ZQ_HERE).describe(name, info, logging_error, status);
}

bool SCSI_Target_Manager::mount_filesystem(const string& name, string& mount_point) const {
  return filesystems(*this, ZQ_HERE).mount(name, mount_point);
}

bool SCSI_Target_Manager::list_mounted_filesystem(Array& info, const string* name) const {
  return filesystems(*this, ZQ_HERE).list_mounted(info, name);
}

bool SCSI_Target_Manager::update_filesystem_mountpoint(const string& name,
                                                       const string& new_mount_point,
                                                       string& absolute_path) const {
  return filesystems(*this, ZQ_HERE).move_mount(name, new_mount_point, absolute_path);
}

bool SCSI_Target_Manager::umount_filesystem(const string& name) const {
  return filesystems(*this, ZQ_HERE).umount(name);
}

bool SCSI_Target_Manager::create_filesystem_snapshot(const string& name, string& snapshot_id,
                                                     bool recyclable) const {
  return filesystems(*this, ZQ_HERE).create_snapshot(name, snapshot_id, recyclable);
}

bool SCSI_Target_Manager::delete_filesystem_snapshot(const string& snapshot_id,
                                                     const bool delete_empty_fs) const {
  return filesystems(*this, ZQ_HERE).delete_snapshot(snapshot_id, delete_empty_fs);
}

bool SCSI_Target_Manager::get_filesystem_snapshot_info(const string& snapshot_id,
                                                       Object& info) const {
  return filesystems(*this, ZQ_HERE).describe_snapshot(snapshot_id, info);
}

bool SCSI_Target_Manager::get_previous_filesystem_snapshot(const string& snapshot_id,
                                                           Object& info) const {
  return filesystems(*this, ZQ_HERE).get_previous_snapshot(snapshot_id, info);
}
