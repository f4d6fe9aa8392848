#include "service/nfs/nfs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/service/fixtures/filesystem_lab.h"
#include "tests/service/fixtures/lab_service.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using std::chrono::milliseconds;

const std::string nfs_path = "/zq/r/nfs";
const std::string first = "00000000-0000-4000-8000-00000000e001";
const std::string second = "00000000-0000-4000-8000-00000000e002";

/// What a record has unless a test says otherwise.
Object record(const std::string& uuid = first) {
  return json(R"({"uuid":")" + uuid + R"(","pseudo":"/mail","fsal":"","squash":"","state":"pending",
      "protocols":"4","access_type":"RW","clients":["*"],"path":"/srv/mail"})")
      .get_obj();
}
Object with(Object changed, const std::string& key, const std::string& value) {
  if (value.empty()) {
    changed.erase(key);
  } else {
    changed[key] = json(value);
  }
  return changed;
}

class NFS : public testing::Test {
 protected:
  explicit NFS(milliseconds delay = {}) : lab_(filesystem_lab(), "", delay) {}

  Value make(const Object& wanted, const std::string& query = "") {
    const service::Response answer = lab_.ask("POST", nfs_path + query, json_spirit::write(wanted));
    EXPECT_EQ(answer.status, 201U) << answer.body;
    return json(answer.body);
  }
  std::string refused(const Object& wanted, const std::string& method = "POST") {
    return lab_.refusal(method, nfs_path, json_spirit::write(wanted));
  }
  std::string state(const std::string& uuid) {
    const Value list = lab_.good("GET", nfs_path + "?uuid=" + uuid);
    return list.get_array().at(0).get_obj().at("state").get_str();
  }
  /// The pseudo paths of all records.
  std::string all() {
    std::string out;
    const Array list = lab_.good("GET", nfs_path).get_array();
    for (const Value& each : list)
      out += each.get_obj().at("pseudo").get_str() + ' ';
    return out;
  }

  Lab_Service lab_;
};

// ---- records

TEST_F(NFS, a_path_is_exported) {
  const Value made = make(record());
  EXPECT_EQ(made, json(R"({"uuid":")" + first + R"(","pseudo":"/mail","fsal":"VFS",
      "squash":"root_squash","state":"exported","protocols":"4","access_type":"RW",
      "clients":["*"],"path":"/srv/mail"})"));
  EXPECT_EQ(lab_.good("GET", nfs_path + "?uuid=" + first), Value(Array{made}));
}

TEST_F(NFS, a_pool_is_exported_whole_or_in_part) {
  Object pool = with(record(), "path", "");
  pool["pool_uuid"] = fs_image_pool;
  pool["pseudo"] = "";
  const Object whole = make(pool).get_obj();
  EXPECT_EQ(whole.at("pool_uuid"), Value(fs_image_pool));
  EXPECT_EQ(whole.at("pseudo"), Value('/' + fs_image_pool));
  EXPECT_EQ(whole.count("path") + whole.count("sub_dir"), 0U);
  Object part = pool;
  part["uuid"] = second;
  part["sub_dir"] = "a//b/";
  part["pseudo"] = "a/b";
  const Object made = make(part).get_obj();
  EXPECT_EQ(made.at("sub_dir"), Value("a/b"));
  EXPECT_EQ(made.at("pseudo"), Value("/a/b"));
}

TEST_F(NFS, how_it_is_exported_is_kept) {
  Object wanted = record();
  wanted["fsal"] = "XFS_2";
  wanted["squash"] = "No_Root_Squash";
  wanted["protocols"] = "3";
  wanted["access_type"] = "RO";
  wanted["clients"] = Array{"192.0.2.0/24", "@hosts", "db*.lab.example", "2001:db8::1"};
  const Object made = make(wanted).get_obj();
  EXPECT_EQ(made.at("fsal"), Value("XFS_2"));
  EXPECT_EQ(made.at("squash"), Value("no_root_squash"));
  EXPECT_EQ(made.at("protocols"), Value("3"));
  EXPECT_EQ(made.at("access_type"), Value("RO"));
  EXPECT_EQ(made.at("clients"), wanted.at("clients"));
}

TEST_F(NFS, records_that_make_no_sense_are_refused) {
  const auto message = [&](const std::string& key, const std::string& value) {
    return refused(with(record(), key, value));
  };
  EXPECT_EQ(message("uuid", "\"x\""), "422 uuid: \\\"x\\\" is not a UUID");
  EXPECT_EQ(message("uuid", ""), "400 uuid: is missing");
  EXPECT_EQ(message("state", R"("exported")"), "422 state: \\\"exported\\\" is not one of pending");
  EXPECT_EQ(message("state", ""), "400 state: is missing");
  EXPECT_EQ(message("fsal", ""), "400 fsal: is missing");
  EXPECT_EQ(message("fsal", R"("V F S")"), "422 fsal: \\\"V F S\\\" is not a name");
  EXPECT_EQ(message("fsal", '"' + std::string(33, 'x') + '"'),
            "422 fsal: \\\"" + std::string(33, 'x') + "\\\" is not a name");
  EXPECT_EQ(message("squash", R"("some")"),
            "422 squash: is not one of root_squash, no_root_squash, all_squash");
  EXPECT_EQ(message("protocols", "4"), "400 protocols: must be a string, not an integer");
  EXPECT_EQ(message("protocols", R"("34")"), "422 protocols: \\\"34\\\" is not one of 3, 4");
  EXPECT_EQ(message("access_type", R"("ro")"), "422 access_type: \\\"ro\\\" is not one of RO, RW");
  EXPECT_EQ(message("clients", ""), "400 clients: is missing");
  EXPECT_EQ(message("clients", "[]"), "422 clients: must not be empty");
  EXPECT_EQ(message("clients", "[5]"), "400 clients[0]: must be a string");
  EXPECT_EQ(message("clients", R"(["a","b c"])"),
            "422 clients[1]: is not a host, a network or '*'");
  EXPECT_EQ(message("clients", R"(["a,b"])"), "422 clients[0]: is not a host, a network or '*'");
  EXPECT_EQ(message("clients", R"([""])"), "422 clients[0]: is not a host, a network or '*'");
  EXPECT_EQ(message("clients", R"(["a","b","a"])"), "422 clients[2]: is given twice");
  EXPECT_EQ(message("clients", json_spirit::write(Array(4097, Value("a")))),
            "422 clients: has more than 4096 elements");
  EXPECT_EQ(message("path", ""), "400 path: is missing");
  EXPECT_EQ(message("path", R"("srv")"), "422 path: must be an absolute path");
  EXPECT_EQ(message("path", R"("/srv/../etc")"), "422 path: must not contain '..'");
  EXPECT_EQ(message("pseudo", R"("")"), "422 pseudo: must not be empty");
  EXPECT_EQ(message("pseudo", R"("/a/..")"), "422 pseudo: must not contain '..'");
  EXPECT_EQ(message("sub_dir", R"("a")"), "400 sub_dir: is unknown");
  EXPECT_EQ(message("pool_uuid", '"' + fs_image_pool + '"'),
            "422 path: cannot be combined with pool_uuid");
  EXPECT_EQ(message("port", "1"), "400 port: is unknown");
  const Object no_path = with(record(), "path", "");
  EXPECT_EQ(refused(with(no_path, "pool_uuid", R"("none")")),
            "404 pool_uuid: there is no pool 'none'");
  EXPECT_EQ(refused(with(no_path, "pool_uuid", '"' + fs_offline_pool + '"')),
            "409 pool_uuid: the pool is offline");
  EXPECT_EQ(lab_.refusal("POST", nfs_path + "?sync=soon", json_spirit::write(record())),
            "400 query field 'sync' must be a number");
  EXPECT_EQ(all(), "");
}

TEST_F(NFS, a_second_request_does_what_the_first_did) {
  const Value made = make(record());
  EXPECT_EQ(make(record()), made);
  EXPECT_EQ(all(), "/mail ");
  EXPECT_EQ(refused(with(record(), "access_type", R"("RO")")),
            "409 there is an NFS record '" + first + "' already");
}

TEST_F(NFS, a_pseudo_path_is_one_records_alone) {
  make(record());
  EXPECT_EQ(refused(record(second)),
            "409 pseudo path '/mail' belongs to NFS record '" + first + "'");
  lab_.good("DELETE", nfs_path + "?uuid=" + first + "&sync=0");
  make(record(second));
  EXPECT_EQ(refused(record()), "409 pseudo path '/mail' belongs to NFS record '" + second + "'");
}

TEST_F(NFS, a_record_is_changed) {
  make(record());
  Object other = with(record(), "access_type", R"("RO")");
  other["pseudo"] = "/post";
  const Value changed = lab_.good("PUT", nfs_path, json_spirit::write(other));
  EXPECT_EQ(changed.get_obj().at("access_type"), Value("RO"));
  EXPECT_EQ(all(), "/post ");
  EXPECT_EQ(lab_.good("PUT", nfs_path, json_spirit::write(other)), changed);
  make(record(second));
  EXPECT_EQ(refused(record(), "PUT"),
            "409 pseudo path '/mail' belongs to NFS record '" + second + "'");
  EXPECT_EQ(all(), "/post /mail ");
}

TEST_F(NFS, a_record_is_withdrawn_and_stays_so) {
  make(record());
  const std::string target = nfs_path + "?uuid=" + first;
  for (int i = 0; i < 2; ++i) {
    const Value gone = lab_.good("DELETE", target);
    EXPECT_EQ(gone.get_obj().at("state"), Value("withdrawn"));
  }
  EXPECT_EQ(all(), "");
  EXPECT_EQ(lab_.refusal("GET", nfs_path + "?uuid=" + first),
            "404 NFS record '" + first + "' was withdrawn");
  EXPECT_EQ(refused(record(), "PUT"), "404 NFS record '" + first + "' was withdrawn");
  make(with(record(), "access_type", R"("RO")"));
  EXPECT_EQ(state(first), "exported");
}

TEST_F(NFS, what_is_not_there_is_404) {
  EXPECT_EQ(lab_.refusal("GET", nfs_path + "?uuid=" + first),
            "404 there is no NFS record '" + first + "'");
  EXPECT_EQ(refused(record(), "PUT"), "404 there is no NFS record '" + first + "'");
  EXPECT_EQ(lab_.refusal("DELETE", nfs_path + "?uuid=" + first + "&sync=0"),
            "404 there is no NFS record '" + first + "'");
  EXPECT_EQ(lab_.refusal("DELETE", nfs_path + "?sync=0"), "400 query field 'uuid' is missing");
}

TEST_F(NFS, a_uuid_of_the_other_case_is_the_same) {
  make(record());
  EXPECT_EQ(
      lab_.good("GET", nfs_path + "?uuid=00000000-0000-4000-8000-00000000E001").get_array().size(),
      1U);
}

// ---- time

/// The NFS server takes an hour over each change.
class Slow_NFS : public NFS {
 protected:
  Slow_NFS() : NFS(milliseconds(3600000)) {}
};

TEST_F(Slow_NFS, a_record_is_pending_until_it_is_taken_over) {
  EXPECT_EQ(make(record()).get_obj().at("state"), Value("pending"));
  EXPECT_EQ(lab_.waited(), milliseconds(0));
  EXPECT_EQ(make(record(), "?sync=0").get_obj().at("state"), Value("pending"));
  EXPECT_EQ(lab_.waited(), milliseconds(0));
  EXPECT_EQ(state(first), "pending");
}

TEST_F(Slow_NFS, a_request_waits_as_long_as_it_said_and_the_change_is_kept) {
  EXPECT_EQ(lab_.refusal("POST", nfs_path + "?sync=5", json_spirit::write(record())),
            "503 NFS record '" + first + "' is still pending");
  EXPECT_EQ(lab_.waited(), milliseconds(5000));
  EXPECT_EQ(state(first), "pending");
  EXPECT_EQ(lab_.refusal("POST", nfs_path + "?sync=7", json_spirit::write(record())),
            "503 NFS record '" + first + "' is still pending");
  EXPECT_EQ(lab_.waited(), milliseconds(7000)) << "a second request waits, too";
}

TEST_F(Slow_NFS, a_request_waits_no_longer_than_it_takes) {
  for (const char* sync : {"86400", "-1", "9223372036854775807", "-9223372036854775808"}) {
    lab_.ask("POST", nfs_path + "?sync=" + sync, json_spirit::write(record()));
    EXPECT_GT(lab_.waited(), milliseconds(3500000)) << sync;
    EXPECT_LE(lab_.waited(), milliseconds(3600000)) << sync;
  }
}

TEST_F(Slow_NFS, a_withdrawal_takes_its_time_too) {
  make(record());
  EXPECT_EQ(lab_.refusal("DELETE", nfs_path + "?uuid=" + first + "&sync=3"),
            "503 NFS record '" + first + "' is still withdrawing");
  EXPECT_EQ(lab_.waited(), milliseconds(3000));
  EXPECT_EQ(state(first), "withdrawing");
  make(record(second));
  EXPECT_EQ(all(), "/mail /mail ") << "its pseudo path is free";
}

TEST_F(Slow_NFS, a_change_makes_it_pending_again) {
  lab_.load(R"({"nfs_exports":[{"uuid":")" + first + R"(","pseudo":"/mail","fsal":"","squash":"",
      "protocols":"4","access_type":"RW","clients":["*"],"path":"/srv/mail"}]})",
            false);
  EXPECT_EQ(state(first), "exported") << "what is loaded is taken over";
  lab_.good("PUT", nfs_path, json_spirit::write(record()));
  EXPECT_EQ(state(first), "exported") << "nothing was changed";
  lab_.good("PUT", nfs_path, json_spirit::write(with(record(), "clients", R"(["a"])")));
  EXPECT_EQ(state(first), "pending");
}

// ---- with filesystems

TEST_F(NFS, a_filesystem_stays_where_nfs_clients_have_it) {
  const auto fs = [&](const std::string& name, const std::string& place) {
    lab_.ask("POST", "/zq/r/scsipool/fs",
             R"({"pool_id":")" + fs_image_pool + R"(","name":")" + name + R"(","mount_point":")" +
                 place + R"("})");
  };
  const auto unmount = [&](const std::string& name) {
    const service::Response answer =
        lab_.ask("DELETE", "/zq/r/scsipool/fs/mount?pool_id=" + fs_image_pool + "&name=" + name);
    return answer.status;
  };
  fs("outer", "/srv");
  fs("mail", "/srv/mail");
  fs("mailbox", "/srv/mailbox");
  make(with(record(), "path", R"("/srv/mail/inbox")"));
  EXPECT_EQ(unmount("mailbox"), 200U);
  EXPECT_EQ(unmount("outer"), 200U) << "the path lies on the filesystem further down";
  EXPECT_EQ(
      lab_.refusal("DELETE", "/zq/r/scsipool/fs/mount?pool_id=" + fs_image_pool + "&name=mail"),
      "409 filesystem 'mail' is exported over NFS, by record '" + first + "'");
  EXPECT_EQ(lab_.refusal("PUT", "/zq/r/scsipool/fs/mount",
                         R"({"pool_id":")" + fs_image_pool +
                             R"(","name":"mail","mount_point":"/srv/post"})"),
            "409 filesystem 'mail' is exported over NFS, by record '" + first + "'");
  lab_.good("DELETE", nfs_path + "?uuid=" + first + "&sync=0");
  EXPECT_EQ(unmount("mail"), 200U);
}

// ---- scenarios

TEST_F(NFS, a_dumped_scenario_loads_to_the_same) {
  make(record());
  Object pool = with(with(record(second), "path", ""), "pool_uuid", '"' + fs_image_pool + '"');
  pool["pseudo"] = "";
  make(pool);
  const Value before = lab_.dump();
  EXPECT_EQ(before.get_obj().at("nfs_exports").get_array().size(), 2U);
  lab_.load("{}", true);
  EXPECT_EQ(all(), "");
  lab_.load(before.get_obj(), true);
  EXPECT_EQ(Value(lab_.dump()), before);
  lab_.load(before.get_obj(), false);
  EXPECT_EQ(Value(lab_.dump()), before) << "merged into itself";
}

TEST_F(NFS, a_pool_takes_its_exports_with_it) {
  Object pool = with(with(record(), "path", ""), "pool_uuid", '"' + fs_image_pool + '"');
  make(pool);
  lab_.load("{}", true);
  EXPECT_EQ(all(), "");
}

}  // namespace
}  // namespace zqpool::test
