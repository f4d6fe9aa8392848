#include "service/filesystem/filesystems.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/service/fixtures/filesystem_lab.h"
#include "tests/service/fixtures/lab_service.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;
using testing::HasSubstr;

const std::string fs_path = "/zq/r/scsipool/fs";
const std::string mount_path = "/zq/r/scsipool/fs/mount";
const std::string snapshot_path = "/zq/r/scsipool/fs/snapshot";
const std::string unknown = "00000000-0000-4000-8000-00000000ffff";

/// In a SCSI pool and in an image pool, which make no difference.
class Filesystems : public testing::TestWithParam<std::string> {
 public:
  ~Filesystems() override {
    EXPECT_EQ(lab_.good("GET", "/zq/lab/check").get_obj().at("problems"), json("[]"));
  }

 protected:
  static std::string pool() { return GetParam(); }
  static std::string body(const std::string& rest, const std::string& in = pool()) {
    return R"({"pool_id":")" + in + "\"," + rest + '}';
  }
  static std::string at(const std::string& path, const std::string& query = "",
                        const std::string& in = pool()) {
    return path + "?pool_id=" + in + (query.empty() ? "" : "&" + query);
  }
  static std::string named(const std::string& name) { return R"("name":")" + name + '"'; }

  Array list(const std::string& target) { return lab_.good("GET", target).get_array(); }
  Object create(const std::string& rest) {
    const service::Response answer = lab_.ask("POST", fs_path, body(rest));
    EXPECT_EQ(answer.status, 201U) << answer.body;
    return json(answer.body).get_obj();
  }
  std::string cannot_create(const std::string& rest) {
    return lab_.refusal("POST", fs_path, body(rest));
  }
  Object show(const std::string& name) {
    return lab_.good("GET", at(fs_path, "name=" + name)).get_array().at(0).get_obj();
  }
  /// "rfer_size" and "excl_size" of something described.
  static std::string sizes(const Object& what) {
    return std::to_string(what.at("rfer_size").get_int64()) + ' ' +
           std::to_string(what.at("excl_size").get_int64());
  }
  std::string mount(const std::string& name) {
    const Value answer = lab_.good("POST", mount_path, body(named(name)));
    EXPECT_EQ(answer.get_obj().at("name"), Value(name));
    return answer.get_obj().at("mountpoint").get_str();
  }
  void unmount(const std::string& name) {
    EXPECT_EQ(lab_.good("DELETE", at(mount_path, "name=" + name)), Value(Object{{"name", name}}));
  }
  /// What the list of mounts says: "name=place" of each.
  std::string mounts(const std::string& query = "") {
    std::string out;
    for (const Value& mount : list(at(mount_path, query))) {
      out += (out.empty() ? "" : " ") + mount.get_obj().at("name").get_str() + '=' +
             mount.get_obj().at("mountpoint").get_str();
    }
    return out;
  }
  /// Mounts, writes and unmounts.
  void write(const std::string& name, int offset, int length, bool discard = false) {
    const bool was_mounted = show(name).at("mounted").get_bool();
    if (!was_mounted) mount(name);
    lab_.good("POST", "/zq/lab/write",
              body(named(name) + R"(,"offset":)" + std::to_string(offset) + R"(,"length":)" +
                   std::to_string(length) + (discard ? R"(,"discard":true)" : "")));
    if (!was_mounted) unmount(name);
  }
  std::string snap(const std::string& name, const std::string& recycle = "false") {
    const service::Response answer = lab_.ask(
        "POST", snapshot_path, body(R"("names":[")" + name + R"("],"recycle":)" + recycle));
    EXPECT_EQ(answer.status, 201U) << answer.body;
    const Array list = json(answer.body).get_array();
    EXPECT_EQ(list.at(0).get_obj().at("name"), Value(name));
    return list.at(0).get_obj().at("snapshot_id").get_str();
  }
  Object snapshot(const std::string& id) {
    return lab_.good("GET", at(snapshot_path, "snapshot_id=" + id)).get_array().at(0).get_obj();
  }

  Lab_Service lab_{filesystem_lab()};
};

INSTANTIATE_TEST_SUITE_P(In, Filesystems, testing::Values(fs_scsi_pool, fs_image_pool),
                         [](const auto& test) {
                           return test.param == fs_scsi_pool ? "a_scsi_pool" : "an_image_pool";
                         });

// ---- filesystems

TEST_P(Filesystems, one_is_made_and_described) {
  Object made = create(named("mail"));
  EXPECT_EQ(Value(show("mail")), Value(made));
  EXPECT_EQ(made.at("created").get_str().size(), 24U);
  made.erase("created");
  EXPECT_EQ(Value(made), json(R"({"name":"mail","pool_id":")" + pool() + R"(","mounted":false,
      "snapshot_count":0,"rfer_size":0,"excl_size":0})"));
}

TEST_P(Filesystems, all_of_a_pool_are_listed_as_they_were_made) {
  create(named("z"));
  create(named("a"));
  const Value all = lab_.good("GET", at(fs_path));
  ASSERT_EQ(all.get_array().size(), 2U);
  EXPECT_EQ(all.get_array()[0], Value(show("z")));
  EXPECT_EQ(all.get_array()[1], Value(show("a")));
}

TEST_P(Filesystems, pools_do_not_share_names) {
  create(named("mail"));
  const std::string other = pool() == fs_scsi_pool ? fs_image_pool : fs_scsi_pool;
  EXPECT_EQ(lab_.refusal("GET", at(fs_path, "name=mail", other)),
            "404 there is no filesystem 'mail'");
  EXPECT_EQ(lab_.ask("POST", fs_path, body(named("mail"), other)).status, 201U);
}

TEST_P(Filesystems, empty_texts_count_as_absent) {
  const Object made = create(named("mail") + R"(,"snapshot_id":"","mount_point":"")");
  EXPECT_EQ(made.count("origin") + made.count("mountpoint"), 0U);
}

TEST_P(Filesystems, one_with_a_mount_point_is_mounted_there) {
  const Object made = create(named("mail") + R"(,"mount_point":"/srv//mail/")");
  EXPECT_EQ(made.at("mountpoint"), Value("/srv/mail"));
  EXPECT_EQ(made.at("mounted"), Value(true));
  EXPECT_EQ(mounts(), "mail=/srv/mail");
}

TEST_P(Filesystems, a_second_request_does_what_the_first_did) {
  const Object first = create(named("mail") + R"(,"mount_point":"/srv/mail")");
  EXPECT_EQ(Value(create(named("mail") + R"(,"mount_point":"/srv/mail")")), Value(first));
  EXPECT_EQ(lab_.good("GET", at(fs_path)).get_array().size(), 1U);
}

TEST_P(Filesystems, a_name_is_taken_when_anything_is_different) {
  create(named("mail") + R"(,"mount_point":"/srv/mail")");
  const std::string taken = "409 there is a filesystem 'mail' already";
  EXPECT_EQ(cannot_create(named("mail")), taken);
  EXPECT_EQ(cannot_create(named("mail") + R"(,"mount_point":"/srv/other")"), taken);
  const std::string same = named("mail") + R"(,"mount_point":"/srv/mail")";
  unmount("mail");
  EXPECT_EQ(cannot_create(same), taken);
  mount("mail");
  write("mail", 0, 10);
  EXPECT_EQ(cannot_create(same), taken);
  write("mail", 0, 10, true);
  create(same);
  const std::string id = snap("mail");
  EXPECT_EQ(cannot_create(same), taken);
  EXPECT_EQ(cannot_create(same + R"(,"snapshot_id":")" + id + '"'), taken);
  lab_.good("DELETE", at(snapshot_path, "snapshot_id=" + id));
  EXPECT_EQ(cannot_create(same), taken) << "it has had a snapshot";
}

TEST_P(Filesystems, names_that_cannot_be_sent_are_refused) {
  EXPECT_EQ(cannot_create(named("")), "422 name: must not be empty");
  EXPECT_EQ(cannot_create(named("..")), "422 name: must not be '..'");
  EXPECT_EQ(cannot_create(named(".")), "422 name: must not be '.'");
  EXPECT_EQ(cannot_create(named("a/b")), "422 name: must not contain '/' or a control character");
  EXPECT_EQ(cannot_create(named("a\\nb")), "422 name: must not contain '/' or a control character");
  for (const char* name : {"a&b", "a+b", "a%62"}) {
    EXPECT_EQ(cannot_create(named(name)),
              "422 name: must not contain '&', '%' or '+', which are special in a query");
  }
  EXPECT_EQ(cannot_create(named(std::string(256, 'n'))), "422 name: is longer than 255 bytes");
  create(named(std::string(255, 'n')));
  create(named("a=b c \xc3\xa9"));
  EXPECT_EQ(show("a=b%20c%20%c3%a9").at("name"), Value("a=b c \xc3\xa9"));
}

TEST_P(Filesystems, requests_that_make_no_sense_are_refused) {
  EXPECT_EQ(cannot_create(R"("snapshot_id":"x")"), "400 name: is missing");
  EXPECT_EQ(cannot_create(named("a") + R"(,"size":1)"), "400 size: is unknown");
  EXPECT_EQ(cannot_create(named("a") + R"(,"snapshot_id":5)"),
            "400 snapshot_id: must be a string, not an integer");
  EXPECT_EQ(cannot_create(named("a") + R"(,"snapshot_id":")" + unknown + '"'),
            "404 there is no snapshot '" + unknown + "' of a filesystem");
  EXPECT_EQ(cannot_create(named("a") + R"(,"mount_point":"srv")"),
            "422 mount_point: must be an absolute path");
  EXPECT_EQ(cannot_create(named("a") + R"(,"mount_point":"/srv/../x")"),
            "422 mount_point: must not contain '..'");
  EXPECT_EQ(cannot_create(named("a") + R"(,"mount_point":"//")"),
            "422 mount_point: must not be the root");
  EXPECT_EQ(lab_.refusal("POST", fs_path, R"({"name":"a"})"), "400 pool_id: is missing");
  EXPECT_EQ(lab_.refusal("POST", fs_path, body(named("a"), unknown)),
            "404 there is no pool '" + unknown + "' that keeps volumes");
  EXPECT_EQ(lab_.refusal("GET", fs_path), "400 query field 'pool_id' is missing");
  EXPECT_EQ(lab_.refusal("GET", at(fs_path, "name=none")), "404 there is no filesystem 'none'");
  EXPECT_EQ(lab_.refusal("PUT", fs_path, body(named("none"))), "404 there is no filesystem 'none'");
  EXPECT_EQ(lab_.refusal("DELETE", at(fs_path, "name=none")), "404 there is no filesystem 'none'");
  EXPECT_EQ(lab_.refusal("DELETE", at(fs_path)), "400 query field 'name' is missing");
}

TEST_P(Filesystems, one_is_deleted_and_stays_so) {
  create(named("mail"));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(lab_.good("DELETE", at(fs_path, "name=mail")), json(R"({"name":"mail"})"));
  }
  EXPECT_EQ(lab_.refusal("GET", at(fs_path, "name=mail")), "404 there is no filesystem 'mail'");
  create(named("mail"));
  EXPECT_EQ(show("mail").at("name"), Value("mail"));
}

TEST_P(Filesystems, one_in_use_is_not_deleted) {
  create(named("mail") + R"(,"mount_point":"/srv/mail")");
  const std::string target = at(fs_path, "name=mail");
  EXPECT_EQ(lab_.refusal("DELETE", target), "409 filesystem 'mail' is mounted");
  unmount("mail");
  const std::string id = snap("mail");
  EXPECT_EQ(lab_.refusal("DELETE", target), "409 filesystem 'mail' has snapshot '" + id + "'");
  create(named("clone") + R"(,"snapshot_id":")" + id + '"');
  EXPECT_EQ(lab_.refusal("DELETE", target),
            "409 filesystem 'clone' is a clone of a snapshot of filesystem 'mail'");
  lab_.good("DELETE", at(fs_path, "name=clone"));
  lab_.good("DELETE", at(snapshot_path, "snapshot_id=" + id));
  lab_.good("DELETE", target);
}

// ---- mounts

TEST_P(Filesystems, one_without_a_place_gets_one_and_keeps_it) {
  create(named("mail"));
  const std::string place = mount("mail");
  EXPECT_EQ(place, "/pools/" + pool() + "/mail");
  EXPECT_EQ(mount("mail"), place) << "it is mounted";
  unmount("mail");
  unmount("mail");
  EXPECT_EQ(mounts(), "");
  EXPECT_EQ(show("mail").at("mountpoint"), Value(place));
  EXPECT_EQ(mount("mail"), place);
}

TEST_P(Filesystems, what_is_mounted_is_listed) {
  create(named("a") + R"(,"mount_point":"/srv/a")");
  create(named("b") + R"(,"mount_point":"/srv/b")");
  create(named("c"));
  EXPECT_EQ(mounts(), "a=/srv/a b=/srv/b");
  EXPECT_EQ(mounts("name=b"), "b=/srv/b");
  EXPECT_EQ(mounts("name=c"), "");
  EXPECT_EQ(lab_.refusal("GET", at(mount_path, "name=none")), "404 there is no filesystem 'none'");
}

TEST_P(Filesystems, a_mount_point_is_moved_and_answered_as_a_text) {
  create(named("mail") + R"(,"mount_point":"/srv/mail")");
  const std::string request = body(named("mail") + R"(,"mount_point":"/srv//post/")");
  EXPECT_EQ(lab_.good("PUT", mount_path, request), Value("/srv/post"));
  EXPECT_EQ(mounts(), "mail=/srv/post");
  EXPECT_EQ(lab_.good("PUT", mount_path, request), Value("/srv/post"));
  unmount("mail");
  lab_.good("PUT", mount_path, body(named("mail") + R"(,"mount_point":"/srv/later")"));
  EXPECT_EQ(mounts(), "") << "it does not mount";
  EXPECT_EQ(mount("mail"), "/srv/later");
}

TEST_P(Filesystems, a_mount_point_is_one_filesystems_alone) {
  create(named("a") + R"(,"mount_point":"/srv/a")");
  create(named("b") + R"(,"mount_point":"/srv/a/b")");
  EXPECT_EQ(cannot_create(named("c") + R"(,"mount_point":"/srv/a")"),
            "409 mount point '/srv/a' belongs to filesystem 'a'");
  EXPECT_EQ(lab_.refusal("GET", at(fs_path, "name=c")), "404 there is no filesystem 'c'");
  EXPECT_EQ(lab_.refusal("PUT", mount_path, body(named("b") + R"(,"mount_point":"/srv/a")")),
            "409 mount point '/srv/a' belongs to filesystem 'a'");
  unmount("a");
  EXPECT_EQ(lab_.refusal("PUT", mount_path, body(named("b") + R"(,"mount_point":"/srv/a")")),
            "409 mount point '/srv/a' belongs to filesystem 'a'")
      << "it would be mounted there again";
  lab_.good("DELETE", at(fs_path, "name=a"));
  lab_.good("PUT", mount_path, body(named("b") + R"(,"mount_point":"/srv/a")"));
  const std::string other = pool() == fs_scsi_pool ? fs_image_pool : fs_scsi_pool;
  EXPECT_EQ(lab_.refusal("POST", fs_path, body(named("c") + R"(,"mount_point":"/srv/a")", other)),
            "409 mount point '/srv/a' belongs to filesystem 'b'")
      << "pools share the tree";
}

TEST_P(Filesystems, mounts_that_make_no_sense_are_refused) {
  EXPECT_EQ(lab_.refusal("POST", mount_path, body(named("none"))),
            "404 there is no filesystem 'none'");
  EXPECT_EQ(lab_.refusal("DELETE", at(mount_path, "name=none")),
            "404 there is no filesystem 'none'");
  create(named("mail"));
  EXPECT_EQ(lab_.refusal("POST", mount_path, body(named("mail") + R"(,"mount_point":"/m")")),
            "400 mount_point: is unknown");
  EXPECT_EQ(lab_.refusal("PUT", mount_path, body(named("mail"))), "400 mount_point: is missing");
  EXPECT_EQ(lab_.refusal("PUT", mount_path, body(named("mail") + R"(,"mount_point":"")")),
            "422 mount_point: must not be empty");
  lab_.good("DELETE", at(fs_path, "name=mail"));
  unmount("mail");
}

// ---- snapshots, clones, roll-back

TEST_P(Filesystems, a_snapshot_is_taken_and_described) {
  create(named("mail"));
  write("mail", 0, 1000);
  const std::string id = snap("mail", "true");
  Object found = snapshot(id);
  EXPECT_EQ(found.at("created").get_str().size(), 24U);
  found.erase("created");
  EXPECT_EQ(Value(found), json(R"({"snapshot_id":")" + id + R"(","pool_id":")" + pool() + R"(",
      "parent_id":"mail","seq":1,"recycle":true,"rfer_size":1000,"excl_size":0})"));
  EXPECT_EQ(show("mail").at("snapshot_count"), Value(1));
}

TEST_P(Filesystems, sizes_come_from_what_was_written) {
  create(named("mail"));
  write("mail", 0, 1000);
  const std::string first = snap("mail");
  write("mail", 500, 1000);
  const std::string second = snap("mail");
  write("mail", 0, 100);
  EXPECT_EQ(sizes(snapshot(first)), "1000 500") << "the second half was written over";
  EXPECT_EQ(sizes(snapshot(second)), "1500 0");
  EXPECT_EQ(sizes(show("mail")), "1500 100");
  write("mail", 0, 1500, true);
  EXPECT_EQ(sizes(snapshot(second)), "1500 1000");
  EXPECT_EQ(sizes(show("mail")), "0 0");
}

TEST_P(Filesystems, snapshots_of_one_or_all_are_listed_in_their_order) {
  create(named("a"));
  create(named("b"));
  const std::string a1 = snap("a");
  const std::string b1 = snap("b");
  const std::string a2 = snap("a");
  const auto ids = [&](const std::string& query) {
    std::string out;
    for (const Value& each : list(at(snapshot_path, query)))
      out += each.get_obj().at("snapshot_id").get_str() + ' ';
    return out;
  };
  EXPECT_EQ(ids("name=a"), a1 + ' ' + a2 + ' ');
  EXPECT_EQ(ids("name=b"), b1 + ' ');
  EXPECT_EQ(ids(""), a1 + ' ' + a2 + ' ' + b1 + ' ');
}

TEST_P(Filesystems, several_are_snapped_at_once_or_none) {
  create(named("a"));
  create(named("b"));
  const auto names = [&](const std::string& list) {
    return lab_.ask("POST", snapshot_path, body(R"("names":)" + list + R"(,"recycle":false)"));
  };
  const Array both = json(names(R"(["b","a"])").body).get_array();
  ASSERT_EQ(both.size(), 2U);
  EXPECT_EQ(both[0].get_obj().at("name"), Value("b"));
  EXPECT_EQ(snapshot(both[0].get_obj().at("snapshot_id").get_str()).at("created"),
            snapshot(both[1].get_obj().at("snapshot_id").get_str()).at("created"));
  EXPECT_EQ(names(R"(["a","none"])").status, 404U);
  EXPECT_EQ(show("a").at("snapshot_count"), Value(1)) << "none of them";
}

TEST_P(Filesystems, snapshots_that_make_no_sense_are_refused) {
  create(named("a"));
  const auto refusal = [&](const std::string& rest) {
    return lab_.refusal("POST", snapshot_path, body(rest));
  };
  EXPECT_EQ(refusal(R"("recycle":false)"), "400 names: is missing");
  EXPECT_EQ(refusal(R"("names":[],"recycle":false)"), "422 names: must not be empty");
  EXPECT_EQ(refusal(R"("names":[5],"recycle":false)"), "400 names[0]: must be a string");
  EXPECT_EQ(refusal(R"("names":["a","a"],"recycle":false)"), "422 names[1]: is given twice");
  EXPECT_EQ(refusal(R"("names":["a"])"), "400 recycle: is missing");
  EXPECT_EQ(lab_.refusal("GET", at(snapshot_path, "name=a&snapshot_id=x")),
            "400 give one of the query fields 'snapshot_id' and 'name'");
  EXPECT_EQ(lab_.refusal("GET", at(snapshot_path, "snapshot_id=" + unknown)),
            "404 there is no snapshot '" + unknown + "' of a filesystem");
  EXPECT_EQ(lab_.refusal("GET", at(snapshot_path, "name=none")),
            "404 there is no filesystem 'none'");
  EXPECT_EQ(lab_.refusal("DELETE", at(snapshot_path, "snapshot_id=" + unknown)),
            "404 there is no snapshot '" + unknown + "' of a filesystem");
  EXPECT_EQ(
      lab_.refusal("DELETE", at(snapshot_path, "snapshot_id=" + unknown + "&delete_empty_fs=yes")),
      "400 query field 'delete_empty_fs' must be true or false");
}

TEST_P(Filesystems, a_clone_has_the_content_and_depends_on_the_snapshot) {
  create(named("mail"));
  write("mail", 0, 1000);
  const std::string id = snap("mail");
  write("mail", 0, 1000);
  const std::string request = named("clone") + R"(,"snapshot_id":")" + id + '"';
  const Object clone = create(request);
  EXPECT_EQ(clone.at("origin"), Value(id));
  EXPECT_EQ(sizes(clone), "1000 0");
  EXPECT_EQ(Value(create(request)), Value(clone)) << "a second request does what the first did";
  EXPECT_EQ(lab_.refusal("DELETE", at(snapshot_path, "snapshot_id=" + id)),
            "409 filesystem 'clone' is a clone of snapshot '" + id + "'");
  write("clone", 0, 400);
  EXPECT_EQ(sizes(show("clone")), "1000 400");
  EXPECT_EQ(cannot_create(request), "409 there is a filesystem 'clone' already");
  lab_.good("DELETE", at(fs_path, "name=clone"));
  EXPECT_EQ(sizes(snapshot(id)), "1000 1000");
  lab_.good("DELETE", at(snapshot_path, "snapshot_id=" + id));
}

TEST_P(Filesystems, one_is_rolled_back_to_its_newest_snapshot) {
  create(named("mail"));
  EXPECT_EQ(lab_.refusal("PUT", fs_path, body(named("mail"))),
            "409 filesystem 'mail' has no snapshot to roll back to");
  write("mail", 0, 1000);
  snap("mail");
  write("mail", 1000, 1000);
  const std::string newest = snap("mail");
  write("mail", 0, 5000);
  mount("mail");
  EXPECT_EQ(lab_.refusal("PUT", fs_path, body(named("mail"))), "409 filesystem 'mail' is mounted");
  unmount("mail");
  const Value answer = lab_.good("PUT", fs_path, body(named("mail")));
  EXPECT_EQ(answer, json(R"({"name":"mail","snapshot_id":")" + newest + R"("})"));
  EXPECT_EQ(sizes(show("mail")), "2000 0");
  EXPECT_EQ(lab_.good("PUT", fs_path, body(named("mail"))), answer);
}

TEST_P(Filesystems, a_snapshot_is_deleted_and_stays_so) {
  create(named("mail"));
  const std::string id = snap("mail");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(lab_.good("DELETE", at(snapshot_path, "snapshot_id=" + id)),
              json(R"({"snapshot_id":")" + id + R"("})"));
  }
  const std::string next = snap("mail");
  EXPECT_EQ(snapshot(next).at("seq"), Value(2)) << "a number is not used again";
}

TEST_P(Filesystems, an_empty_one_goes_with_its_last_snapshot) {
  const auto remove = [&](const std::string& id) {
    lab_.good("DELETE", at(snapshot_path, "snapshot_id=" + id + "&delete_empty_fs=true"));
  };
  create(named("mail"));
  const std::string first = snap("mail");
  const std::string second = snap("mail");
  remove(first);
  EXPECT_EQ(show("mail").at("snapshot_count"), Value(1)) << "it has another one";
  mount("mail");
  remove(second);
  EXPECT_EQ(show("mail").at("mounted"), Value(true)) << "it is in use";
  unmount("mail");
  const std::string third = snap("mail");
  write("mail", 0, 10);
  remove(third);
  EXPECT_EQ(sizes(show("mail")), "10 10") << "it was written to";
  remove(snap("mail"));
  EXPECT_EQ(lab_.refusal("GET", at(fs_path, "name=mail")), "404 there is no filesystem 'mail'");
}

TEST_P(Filesystems, a_full_pool_reclaims_what_it_may) {
  create(named("mail"));
  write("mail", 0, 600000);
  const std::string kept = snap("mail", "false");
  write("mail", 0, 300000);
  const std::string lost = snap("mail", "true");
  write("mail", 0, 300000);
  EXPECT_EQ(lab_.refusal("GET", at(snapshot_path, "snapshot_id=" + lost)),
            "404 there is no snapshot '" + lost + "' of a filesystem");
  mount("mail");
  EXPECT_THAT(
      lab_.refusal("POST", "/zq/lab/write", body(named("mail") + R"(,"offset":0,"length":900000)")),
      testing::StartsWith("507 pool "));
  unmount("mail");
  EXPECT_EQ(snapshot(kept).at("seq"), Value(1));
}

TEST_P(Filesystems, only_what_is_mounted_is_written_to) {
  create(named("mail"));
  EXPECT_EQ(
      lab_.refusal("POST", "/zq/lab/write", body(named("mail") + R"(,"offset":0,"length":1)")),
      "409 filesystem 'mail' is not mounted");
}

TEST_P(Filesystems, a_dumped_scenario_loads_to_the_same) {
  create(named("mail") + R"(,"mount_point":"/srv/mail")");
  write("mail", 0, 1000);
  const std::string id = snap("mail", "true");
  write("mail", 100, 100);
  create(named("clone") + R"(,"snapshot_id":")" + id + '"');
  write("clone", 2000, 10);
  mount("clone");
  unmount("clone");
  const Value before = lab_.dump();
  const Object mail = show("mail");
  const Object clone = show("clone");
  lab_.load("{}", true);
  EXPECT_EQ(lab_.refusal("GET", at(fs_path)),
            "404 there is no pool '" + pool() + "' that keeps volumes");
  lab_.load(before.get_obj(), true);
  EXPECT_EQ(Value(lab_.dump()), before);
  EXPECT_EQ(Value(show("mail")), Value(mail));
  EXPECT_EQ(Value(show("clone")), Value(clone));
}

// ---- pools that take nothing

TEST(Filesystem_Pools, a_readonly_pool_is_read_and_mounted) {
  Lab_Service lab(filesystem_lab());
  const std::string pool = R"({"pool_id":")" + fs_readonly_pool + R"(",)";
  const std::string query = "?pool_id=" + fs_readonly_pool;
  const std::string refusal = "409 pool '" + fs_readonly_pool + "' is readonly";
  EXPECT_EQ(lab.good("GET", fs_path + query).get_array().size(), 1U);
  lab.good("POST", mount_path, pool + R"("name":"kept"})");
  EXPECT_EQ(lab.good("GET", mount_path + query).get_array().size(), 1U);
  lab.good("DELETE", mount_path + query + "&name=kept");
  EXPECT_EQ(lab.refusal("POST", fs_path, pool + R"("name":"new"})"), refusal);
  EXPECT_EQ(lab.refusal("PUT", fs_path, pool + R"("name":"kept"})"), refusal);
  EXPECT_EQ(lab.refusal("DELETE", fs_path + query + "&name=kept"), refusal);
  EXPECT_EQ(lab.refusal("POST", snapshot_path, pool + R"("names":["kept"],"recycle":false})"),
            refusal);
}

TEST(Filesystem_Pools, an_offline_pool_is_described_but_not_mounted) {
  Lab_Service lab(filesystem_lab());
  const std::string pool = R"({"pool_id":")" + fs_offline_pool + R"(",)";
  EXPECT_EQ(lab.good("GET", fs_path + "?pool_id=" + fs_offline_pool).get_array().size(), 1U);
  EXPECT_EQ(lab.refusal("POST", mount_path, pool + R"("name":"kept"})"),
            "409 pool '" + fs_offline_pool + "' is offline");
  EXPECT_EQ(lab.refusal("POST", fs_path, pool + R"("name":"new"})"),
            "409 pool '" + fs_offline_pool + "' is offline");
}

TEST(Filesystem_Pools, luns_are_no_filesystems) {
  Lab_Service lab(filesystem_lab());
  const std::string pool = R"({"pool_id":")" + fs_scsi_pool + R"(",)";
  const service::Response made =
      lab.ask("POST", "/zq/r/scsipool/lun",
              pool + R"("lun_size":4096,"export":false,"retention_type":"normal"})");
  const std::string lun = json(made.body).get_obj().at("lun_id").get_str();
  EXPECT_EQ(lab.refusal("GET", fs_path + "?pool_id=" + fs_scsi_pool + "&name=" + lun),
            "404 there is no filesystem '" + lun + "'");
  const service::Response taken = lab.ask("POST", "/zq/r/scsipool/snapshot",
                                          pool + R"("lun_id":")" + lun + R"(","recycle":false})");
  const std::string id = json(taken.body).get_obj().at("snapshot_id").get_str();
  EXPECT_EQ(lab.refusal("POST", fs_path, pool + R"("name":"a","snapshot_id":")" + id + "\"}"),
            "404 there is no snapshot '" + id + "' of a filesystem");
}

TEST(Filesystem_Pools, the_check_looks_at_each_and_finds_what_is_wrong) {
  Lab_Service lab(filesystem_lab());
  EXPECT_EQ(lab.good("GET", "/zq/lab/check"),
            json(R"({"checked":{"exports":0,"filesystems":2,"volumes":2},"problems":[]})"));
  const auto damaged = [&lab](const char* damage) {
    service::Transaction transaction = lab.database().begin(service::Access::write);
    transaction.db().database().exec(damage);
    Array problems;
    for (const service::Check& check : lab.resources().checks)
      check.run(transaction.db(), problems);
    return json_spirit::write(problems);
  };
  EXPECT_THAT(damaged("DELETE FROM filesystem"),
              HasSubstr("filesystem 'kept' has no row in its table"));
  EXPECT_THAT(damaged("UPDATE filesystem SET mount_point = 'm' || volume"),
              HasSubstr("filesystem 'kept' has a mount point that is not tidy"));
  EXPECT_THAT(damaged("UPDATE volume SET kind = 'lun', name = number"),
              HasSubstr("is not a filesystem volume"));
}

struct Bad_Filesystem {
  const char* name;
  std::string scenario;  ///< merged into filesystem_lab()
  std::string message;
};

class Filesystem_Refusal : public testing::TestWithParam<Bad_Filesystem> {};

TEST_P(Filesystem_Refusal, names_the_place_and_keeps_nothing) {
  Lab_Service lab(filesystem_lab());
  EXPECT_EQ(lab.scenario_refusal(GetParam().scenario), GetParam().message);
}

std::string filesystem_with(const std::string& more) {
  return R"({"filesystems":[{"pool_uuid":")" + fs_image_pool + R"(",)" + more + "}]}";
}

INSTANTIATE_TEST_SUITE_P(
    Each, Filesystem_Refusal,
    testing::Values(
        Bad_Filesystem{
            "image_pool_that_is_none",
            R"({"image_pools":[{"uuid":")" + fs_scsi_pool + R"(","size":1}]})",
            "422 image_pools[0].uuid: there is no pool '" + fs_scsi_pool + "' of type image"},
        Bad_Filesystem{"image_pool_without_size",
                       R"({"image_pools":[{"uuid":")" + fs_image_pool + R"(","size":0}]})",
                       "422 image_pools[0].size: must not be 0"},
        Bad_Filesystem{"pool_that_keeps_none",
                       R"({"filesystems":[{"pool_uuid":")" + unknown + R"(","name":"n"}]})",
                       "422 filesystems[0]: there is no pool '" + unknown + "' that keeps volumes"},
        Bad_Filesystem{"mounted_nowhere", filesystem_with(R"("name":"n","mounted":true)"),
                       "400 filesystems[0].mount_point: is missing"},
        Bad_Filesystem{"clone_of_nothing",
                       filesystem_with(R"("name":"n","origin":")" + unknown + '"'),
                       "422 filesystems[0].origin: no filesystem before this one has that "
                       "snapshot"},
        Bad_Filesystem{"bad_name", filesystem_with(R"("name":"a/b")"),
                       "422 filesystems[0].name: must not contain '/' or a control character"},
        Bad_Filesystem{
            "history_that_does_not_fit",
            filesystem_with(R"("name":"n","history":[{"write":{"offset":0,"length":2000000}}])"),
            "422 filesystems[0].history[0]: pool '" + fs_image_pool +
                "' has 1048576 bytes free, 2000000 are needed"},
        Bad_Filesystem{"two_at_one_place",
                       R"({"filesystems":[
                         {"pool_uuid":")" +
                           fs_image_pool + R"(","name":"a","mount_point":"/m"},
                         {"pool_uuid":")" +
                           fs_image_pool + R"(","name":"b","mount_point":"/m"}]})",
                       "422 filesystems[1]: mount point '/m' belongs to filesystem 'a'"}),
    [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace zqpool::test
