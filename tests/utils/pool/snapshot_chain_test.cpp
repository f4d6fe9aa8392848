#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "tests/support/guards.h"
#include "tests/utils/pool/manager_test.h"

namespace zqpool::test {
namespace {

using json_spirit::Value;

/// One of those whose snapshots stand in a row. The snapshot asked about is "s1", of parent "x1".
struct Chain {
  std::string path;
  std::string parent_key;   ///< of the query for all snapshots
  std::string parent_noun;  ///< in messages
  std::string source;
  std::string unknown;       ///< message when the snapshot cannot be described
  std::string unknown_size;  ///< the same of the size's calculation
  std::function<bool(const Endpoint&, const std::string& id, Object& info)> previous;
  std::function<bool(const Endpoint&, const std::string& id, std::uint64_t& size)> size;

  std::string info_target() const { return path + "?pool_id=p1&snapshot_id=s1"; }
  std::string list_target() const { return path + "?pool_id=p1&" + parent_key + "=x1"; }
  Expected_Line error(const std::string& text) const { return {"LM_ERROR", text, true, source}; }
  Expected_Line no_object() const {
    return {"LM_EMERGENCY", "Unexpected error in " + source + ":{number}, i is not object!\n", true,
            source};
  }
};

Chain lun_chain() {
  return {"/zq/r/scsipool/snapshot",
          "lun_id",
          "LUN",
          source_of<SCSI_Target_Manager>,
          "Failed to get snapshot 's1' info.\n",
          "Failed to calculate snapshot size: failed to get snapshot info\n",
          [](const Endpoint& to, const std::string& id, Object& info) {
            return make_manager<SCSI_Target_Manager>(to).get_previous_snapshot(id, info);
          },
          [](const Endpoint& to, const std::string& id, std::uint64_t& size) {
            return make_manager<SCSI_Target_Manager>(to).cal_snapshot_size(id, size, true);
          }};
}

Chain scsi_filesystem_chain() {
  return {"/zq/r/scsipool/fs/snapshot",
          "name",
          "filesystem",
          source_of<SCSI_Target_Manager>,
          "Failed to get snapshot s1 info.\n",
          "Failed to calculate snapshot size: failed to get filesystem snapshot info\n",
          [](const Endpoint& to, const std::string& id, Object& info) {
            return make_manager<SCSI_Target_Manager>(to).get_previous_filesystem_snapshot(id, info);
          },
          [](const Endpoint& to, const std::string& id, std::uint64_t& size) {
            return make_manager<SCSI_Target_Manager>(to).cal_snapshot_size(id, size, false);
          }};
}

Chain image_chain() {
  return {"/zq/r/scsipool/fs/snapshot",
          "name",
          "filesystem",
          source_of<Image_Pool_Manager>,
          "Failed to get snapshot s1 info.\n",
          "Failed to calculate snapshot size: failed to get snapshot info\n",
          [](const Endpoint& to, const std::string& id, Object& info) {
            return make_manager<Image_Pool_Manager>(to).get_previous_snapshot(id, info);
          },
          [](const Endpoint& to, const std::string& id, std::uint64_t& size) {
            return make_manager<Image_Pool_Manager>(to).cal_snapshot_size(id, size);
          }};
}

Call get_previous(const Chain& chain, const Object& before = {}) {
  return [chain, before](const Endpoint& to) {
    Object info = before;
    const bool result = chain.previous(to, "s1", info);
    return Outcome{result, {{"info", info}}};
  };
}

Call cal_size(const Chain& chain) {
  return [chain](const Endpoint& to) {
    std::uint64_t size = 7;
    const bool result = chain.size(to, "s1", size);
    return Outcome{result, {{"size", size}}};
  };
}

// --- Predecessors ------------------------------------------------------------------------------

std::vector<Wire_Row> previous_rows(const Chain& chain) {
  const std::string none = R"({"info":{}})";
  const auto asked = [&](const std::string& name, const std::string& seq, Answer list,
                         const Object& before = {}) {
    return Row(name, get_previous(chain, before))
        .sends("GET", chain.info_target())
        .sends("GET", chain.list_target())
        .gets(ok(R"([{"parent_id":"x1","seq":)" + seq + "}]"))
        .gets(std::move(list));
  };
  const auto found = [&](const std::string& name, const std::string& seq, const std::string& list,
                         const std::string& info) {
    return asked(name, seq, ok(list)).gives(false, R"({"info":)" + info + "}");
  };
  const auto not_found = [&](const std::string& name, const std::string& seq,
                             const std::string& list) {
    return asked(name, seq, ok(list)).gives(true, none);
  };
  const auto bad_seq = [&](const std::string& name, const std::string& list,
                           const std::string& info) {
    return asked(name, "3", ok(list))
        .logs(chain.error("Invalid value " + list + " of " + chain.parent_noun + " 'x1'.\n"))
        .gives(false, R"({"info":)" + info + "}");
  };
  const auto bad_current = [&](const std::string& name, const std::string& current,
                               const std::string& said) {
    return Row(name, get_previous(chain))
        .sends("GET", chain.info_target())
        .gets(ok("[" + current + "]"))
        .logs(chain.error("Failed to get previous snapshot: {any}" + said + "{any}\n"))
        .gives(false, none);
  };
  const Expected_Line no_list = chain.error("Failed to get s1 previous snapshot info.\n");
  return {
      found("largest_below_in_any_order", "3", R"([{"seq":1},{"seq":3},{"seq":2,"a":1},{"seq":0}])",
            R"({"a":1,"seq":2})"),
      found("last_of_several_alike", "5", R"([{"a":1,"seq":2},{"a":2,"seq":2}])",
            R"({"a":2,"seq":2})"),
      found("larger_is_ignored", "3", R"([{"seq":5},{"seq":1},{"seq":2147483647}])",
            R"({"seq":1})"),
      found("minus_one_qualifies", "0", R"([{"seq":-1},{"seq":-2}])", R"({"seq":-1})"),
      not_found("less_than_minus_one_does_not", "0", R"([{"seq":-2},{"seq":-2147483648}])"),
      not_found("first_of_all", "1", R"([{"seq":1}])"),
      not_found("another_with_the_same_number_is_none", "2", R"([{"seq":2},{"seq":2}])"),
      asked("full_info_without_a_predecessor_is_kept", "1", ok(R"([{"seq":1}])"), old_object())
          .gives(false, R"({"info":{"old":true}})"),
      asked("full_info_is_replaced", "2", ok(R"([{"seq":1}])"), old_object())
          .gives(false, R"({"info":{"seq":1}})"),
      asked("empty_list_is_silent", "3", ok("[]")).gives(false, none),
      asked("element_that_is_no_object_behind_a_good_one", "3", ok(R"([{"seq":1},"s2",{"seq":2}])"))
          .logs(chain.no_object())
          .gives(false, R"({"info":{"seq":1}})"),
      asked("element_that_is_no_object_first", "3", ok(R"([null,{"seq":2}])"))
          .logs(chain.no_object())
          .gives(false, none),
      bad_seq("missing_number_behind_a_good_one", R"([{"a":1,"seq":2},{"seq":1},{}])",
              R"({"a":1,"seq":2})"),
      bad_seq("number_that_is_a_string", R"([{"seq":"1"},{"seq":2}])", "{}"),
      bad_seq("number_beyond_an_int", R"([{"seq":1},{"seq":2147483648}])", R"({"seq":1})"),
      asked("list_that_is_an_object", "3", ok("{}")).logs(no_list).gives(false, none),
      asked("list_that_is_refused", "3", refusal())
          .logs(client_error("GET", chain.path))
          .logs(no_list)
          .gives(false, none),
      asked("failed_call_with_a_good_list", "3", json_answer(500, R"([{"seq":1}])"))
          .logs(client_error("GET", chain.path))
          .logs(no_list)
          .gives(false, none),
      bad_current("current_without_a_number", R"({"parent_id":"x1"})", "seq"),
      bad_current("current_with_a_number_beyond_an_int", R"({"parent_id":"x1","seq":2147483648})",
                  "seq"),
      bad_current("current_without_a_parent", R"({"seq":3})", "parent_id"),
      bad_current("current_with_a_parent_that_is_a_number", R"({"parent_id":1,"seq":3})",
                  "parent_id"),
      Row("current_that_is_not_known", get_previous(chain))
          .sends("GET", chain.info_target())
          .gets(refusal())
          .logs(client_error("GET", chain.path))
          .logs(chain.error(chain.unknown))
          .logs(
              chain.error("Failed to get previous snapshot: failed to get current snapshot info\n"))
          .gives(false, none),
      Row("parent_goes_out_as_it_stands", get_previous(chain))
          .sends("GET", chain.info_target())
          .sends("GET", chain.path + "?pool_id=p1&" + chain.parent_key + "=a&b=/c")
          .gets(ok(R"([{"parent_id":"a&b=/c","seq":3}])"))
          .gets(ok(R"([{"seq":2}])"))
          .gives(false, R"({"info":{"seq":2}})"),
  };
}

/// Only LUN snapshots may be described several times.
std::vector<Wire_Row> shared_snapshot_rows() {
  const Chain chain = lun_chain();
  return {
      Row("current_under_number_minus_one_of_several", get_previous(chain))
          .sends("GET", chain.info_target())
          .sends("GET", chain.list_target())
          .gets(ok(R"([{"lun_num":1,"seq":9},{"lun_num":-1,"parent_id":"x1","seq":3}])"))
          .gets(ok(R"([{"seq":2}])"))
          .gives(false, R"({"info":{"seq":2}})"),
      Row("current_shared_twice", get_previous(chain))
          .sends("GET", chain.info_target())
          .gets(ok(R"([{"lun_num":1,"parent_id":"x1","seq":3},{"lun_num":2}])"))
          .logs(
              chain.error("Failed to get previous snapshot: failed to get current snapshot info\n"))
          .gives(false, R"({"info":{}})"),
  };
}

// --- Sizes -------------------------------------------------------------------------------------

std::vector<Wire_Row> size_rows(const Chain& chain) {
  const auto description = [](const std::string& seq, const std::string& excl,
                              const std::string& rfer) {
    return R"({"excl_size":)" + excl + R"(,"parent_id":"x1","rfer_size":)" + rfer + R"(,"seq":)" +
           seq + "}";
  };
  const auto asked = [&](const std::string& name, const std::string& current, Answer list) {
    return Row(name, cal_size(chain))
        .sends("GET", chain.info_target())
        .again(1)
        .sends("GET", chain.list_target())
        .gets(ok("[" + current + "]"))
        .gets(ok("[" + current + "]"))
        .gets(std::move(list));
  };
  // Snapshot 3 behind snapshot 2.
  const auto after = [&](const std::string& name, const std::string& excl_2,
                         const std::string& rfer_2, const std::string& excl_3,
                         const std::string& rfer_3) {
    return asked(
        name, description("3", excl_3, rfer_3),
        ok("[" + description("2", excl_2, rfer_2) + "," + description("3", excl_3, rfer_3) + "]"));
  };
  const auto gives = [](const std::string& size) { return R"({"size":)" + size + "}"; };
  const auto negative = [&](const std::string& excl_2, const std::string& rfer_2,
                            const std::string& excl_3, const std::string& rfer_3) {
    return Expected_Line{
        "LM_WARNING",
        "Calculate snapshot size is less than 0, previous snapshot excl size = " + excl_2 +
            ", rfer size = " + rfer_2 + ", current snapshot excl size = " + excl_3 +
            ", rfer size = " + rfer_3 + ".\n",
        true, chain.source};
  };
  const std::string first = description("1", "10", "100");
  const auto unreadable = [&](const std::string& key) {
    return chain.error("Failed to calculate snapshot size: {any}" + key + "{any}\n");
  };
  return {
      asked("first_snapshot_counts_whole", first, ok("[" + first + "]")).gives(true, gives("110")),
      after("growth_and_what_the_one_before_holds_alone", "5", "80", "999", "100")
          .gives(true, gives("25")),
      after("growth_and_a_share_as_large", "5", "100", "7", "130").gives(true, gives("35")),
      after("nothing_added", "0", "80", "3", "80").gives(true, gives("0")),
      after("less_than_nothing_is_0", "0", "500", "3", "300")
          .logs(negative("0", "500", "3", "300"))
          .gives(true, gives("0")),
      after("one_less_than_nothing_is_0", "0", "101", "3", "100")
          .logs(negative("0", "101", "3", "100"))
          .gives(true, gives("0")),
      after("one_before_with_both_sizes_0_counts_as_none", "0", "0", "10", "100")
          .gives(true, gives("110")),
      after("one_before_that_refers_to_nothing_counts", "1", "0", "10", "100")
          .gives(true, gives("101")),
      after("largest_positive_size", "1", "0", "0", "9223372036854775806")
          .gives(true, gives("9223372036854775807")),
      after("size_beyond_63_bits_is_negative", "1", "0", "0", "9223372036854775807")
          .logs(negative("1", "0", "0", "9223372036854775807"))
          .gives(true, gives("0")),
      after("sum_that_wraps_around", "18446744073709551615", "80", "0", "100")
          .gives(true, gives("19")),
      asked("first_snapshot_whose_sum_wraps_around", description("1", "2", "18446744073709551615"),
            ok(R"([{"seq":1}])"))
          .gives(true, gives("1")),
      asked("list_that_is_refused_counts_as_no_predecessor", first, refusal())
          .logs(client_error("GET", chain.path))
          .logs(chain.error("Failed to get s1 previous snapshot info.\n"))
          .gives(true, gives("110")),
      asked("candidate_of_a_failed_search_counts", description("3", "9", "100"),
            ok("[" + description("2", "5", "80") + ",null]"))
          .logs(chain.no_object())
          .gives(true, gives("25")),
      Row("current_without_a_parent_counts_as_first", cal_size(chain))
          .sends("GET", chain.info_target())
          .again(1)
          .gets(ok(R"([{"excl_size":1,"rfer_size":2,"seq":1}])"))
          .gets(ok(R"([{"excl_size":1,"rfer_size":2,"seq":1}])"))
          .logs(chain.error("Failed to get previous snapshot: {any}parent_id{any}\n"))
          .gives(true, gives("3")),
      asked("one_before_without_a_size", description("3", "9", "100"),
            ok(R"([{"seq":2,"excl_size":5}])"))
          .logs(unreadable("rfer_size"))
          .gives(false, gives("7")),
      asked("one_before_without_any_size_names_the_first", description("3", "9", "100"),
            ok(R"([{"seq":2}])"))
          .logs(unreadable("excl_size"))
          .gives(false, gives("7")),
      asked("current_without_its_own_share", R"({"parent_id":"x1","rfer_size":2,"seq":1})",
            ok(R"([{"seq":1}])"))
          .logs(unreadable("excl_size"))
          .gives(false, gives("7")),
      asked("current_without_what_it_refers_to", R"({"excl_size":2,"parent_id":"x1","seq":1})",
            ok(R"([{"seq":1}])"))
          .logs(unreadable("rfer_size"))
          .gives(false, gives("7")),
      after("negative_size", "5", "80", "-1", "100")
          .logs(unreadable("excl_size"))
          .gives(false, gives("7")),
      after("size_that_is_a_string", "5", "\"80\"", "1", "100")
          .logs(unreadable("rfer_size"))
          .gives(false, gives("7")),
      Row("snapshot_that_is_not_known", cal_size(chain))
          .sends("GET", chain.info_target())
          .gets(ok("{}"))
          .logs(chain.error(chain.unknown))
          .logs(chain.error(chain.unknown_size))
          .gives(false, gives("7")),
  };
}

INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_previous_snapshot, Wire_Table,
                         testing::ValuesIn(plays(previous_rows(lun_chain()))), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Snapshots_described_several_times, Wire_Table,
                         testing::ValuesIn(plays(shared_snapshot_rows())), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_get_previous_filesystem_snapshot, Wire_Table,
                         testing::ValuesIn(plays(previous_rows(scsi_filesystem_chain()))),
                         Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_get_previous_snapshot, Wire_Table,
                         testing::ValuesIn(plays(previous_rows(image_chain()))), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_cal_snapshot_size, Wire_Table,
                         testing::ValuesIn(plays(size_rows(lun_chain()))), Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(SCSI_Target_Manager_cal_snapshot_size_of_filesystem, Wire_Table,
                         testing::ValuesIn(plays(size_rows(scsi_filesystem_chain()))),
                         Wire_Table::name);
INSTANTIATE_TEST_SUITE_P(Image_Pool_Manager_cal_snapshot_size, Wire_Table,
                         testing::ValuesIn(plays(size_rows(image_chain()))), Wire_Table::name);

// --- All kinds of chains -----------------------------------------------------------------------

class Snapshot_Chain_Test : public testing::TestWithParam<Chain> {
 public:
  static std::string name(const testing::TestParamInfo<Chain>& chain) {
    return (chain.param.source == source_of<Image_Pool_Manager> ? "image_" : "scsi_") +
           chain.param.parent_noun;
  }
};

INSTANTIATE_TEST_SUITE_P(All, Snapshot_Chain_Test,
                         testing::Values(lun_chain(), scsi_filesystem_chain(), image_chain()),
                         Snapshot_Chain_Test::name);

TEST_P(Snapshot_Chain_Test, predecessor_from_any_list) {
  const Chain& chain = GetParam();
  judge_any_second_answer(
      get_previous(chain), R"([{"parent_id":"x1","seq":3}])",
      R"([{"seq":2,"a":{"b":[null]}},{"seq":1},{"seq":3}])", [&](const Value* body) {
        const Array* const list = as_array(body);
        if (list == nullptr) {
          return Judgement{
              false, {{"info", Object{}}}, {"Failed to get s1 previous snapshot info.\n"}};
        }
        if (list->empty()) return Judgement{false, {{"info", Object{}}}, {}};
        Judgement made;
        Object best;
        int best_seq = -1;
        made.result = true;
        for (const Value& one : *list) {
          int seq = 0;
          if (as_object(&one) == nullptr) {
            made.messages = {"Unexpected error in {place}, i is not object!\n"};
            made.result = false;
            break;
          }
          if (!json_spirit::object_get(one.get_obj(), "seq", seq)) {
            made.messages = {"Invalid value {any} of " + chain.parent_noun + " 'x1'.\n"};
            made.result = false;
            break;
          }
          if (best_seq <= seq && seq < 3) {
            best = one.get_obj();
            best_seq = seq;
          }
        }
        made.result = made.result && best.empty();
        made.outputs["info"] = best;
        return made;
      });
}

// The description of the snapshot is the answer to every request, so it is alone in its list.
TEST_P(Snapshot_Chain_Test, size_from_any_description) {
  const Chain& chain = GetParam();
  judge_any_answer(
      cal_size(chain), R"([{"parent_id":"x1","seq":3,"excl_size":10,"rfer_size":100}])",
      [&](const Value* body) {
        Judgement made;
        made.outputs["size"] = 7;
        const Object* const current = only_object(body);
        if (current == nullptr) {
          const Array* const list = as_array(body);
          if (list == nullptr || chain.parent_noun != "LUN") {
            const bool of_one = list != nullptr && list->size() == 1;
            made.messages.push_back(of_one ? "Invalid response {any} of snapshot 's1'.\n"
                                           : chain.unknown);
          } else if (list->size() == 1) {
            made.messages.emplace_back("Unexpected error in {place}, i is not object!\n");
          } else if (!list->empty()) {  // doubled, and none has a number on a target
            made.messages.emplace_back("Invalid value {any} of snapshot 's1'.\n");
          }
          made.messages.push_back(chain.unknown_size);
          return made;
        }
        std::string parent;
        int seq = 0;
        if (!json_spirit::object_get(*current, "parent_id", parent) ||
            !json_spirit::object_get(*current, "seq", seq)) {
          made.messages.emplace_back("Failed to get previous snapshot: {any}\n");
        }
        std::uint64_t excl = 0;
        std::uint64_t rfer = 0;
        made.result = json_spirit::object_get(*current, "excl_size", excl) &&
                      json_spirit::object_get(*current, "rfer_size", rfer);
        if (made.result) {
          made.outputs["size"] = excl + rfer;
        } else {
          made.messages.emplace_back("Failed to calculate snapshot size: {any}\n");
        }
        return made;
      });
}

struct Snapshot {
  int seq = 0;
  std::int64_t excl = 0;
  std::int64_t rfer = 0;
};

/// Up to twelve snapshots in any order; some numbers come twice, some lie below 0.
std::vector<Snapshot> random_snapshots(std::mt19937& random) {
  const auto pick = [&random](std::int64_t from, std::int64_t to) {
    return std::uniform_int_distribution<std::int64_t>(from, to)(random);
  };
  std::vector<Snapshot> all(static_cast<std::size_t>(pick(1, 12)));
  for (Snapshot& one : all) {
    one.seq = static_cast<int>(pick(-3, 15));
    const bool nothing = pick(0, 5) == 0;
    one.excl = nothing ? 0 : pick(0, 1LL << 30);
    one.rfer = nothing ? 0 : pick(0, 1LL << 40);
  }
  return all;
}

Object description(const std::vector<Snapshot>& all, std::size_t i) {
  return {{"snapshot_id", "s" + std::to_string(i)},
          {"parent_id", "x1"},
          {"seq", all[i].seq},
          {"excl_size", all[i].excl},
          {"rfer_size", all[i].rfer}};
}

/// The predecessor as one would find it on paper; the index, or all of them for none.
std::size_t model_previous(const std::vector<Snapshot>& all, std::size_t current) {
  std::vector<std::size_t> before;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (all[i].seq >= -1 && all[i].seq < all[current].seq) before.push_back(i);
  }
  std::stable_sort(before.begin(), before.end(),
                   [&](std::size_t a, std::size_t b) { return all[a].seq < all[b].seq; });
  return before.empty() ? all.size() : before.back();
}

std::int64_t model_size(const std::vector<Snapshot>& all, std::size_t current) {
  const std::size_t previous = model_previous(all, current);
  const Snapshot before = previous < all.size() ? all[previous] : Snapshot();
  if (before.excl == 0 && before.rfer == 0) return all[current].rfer + all[current].excl;
  return all[current].rfer - before.rfer + before.excl;
}

TEST_P(Snapshot_Chain_Test, two_hundred_random_chains_agree_with_a_plain_model) {
  const Chain& chain = GetParam();
  const Sleep_Recorder nothing_sleeps;
  std::mt19937 random(20261);
  Scripted_Server server;
  int found = 0;
  int negative = 0;
  for (int round = 0; round < 200; ++round) {
    const std::vector<Snapshot> all = random_snapshots(random);
    Array list;
    for (std::size_t i = 0; i < all.size(); ++i)
      list.emplace_back(description(all, i));
    server.otherwise([all, list, &chain](const Recorded_Request& request) {
      if (request.target == chain.list_target()) return ok(json_spirit::write(list));
      const std::size_t id = request.target.find("snapshot_id=s");
      if (id == std::string::npos) return refusal();
      return ok(
          json_spirit::write(Array{description(all, std::stoul(request.target.substr(id + 13)))}));
    });
    const std::size_t current = random() % all.size();
    const std::string id = "s" + std::to_string(current);
    SCOPED_TRACE("round " + std::to_string(round) + ", " + id + " of " + json_spirit::write(list));
    const Log_Capture log;

    Object info;
    const bool result = chain.previous(server.endpoint(), id, info);
    const std::size_t previous = model_previous(all, current);
    found += previous < all.size() ? 1 : 0;
    EXPECT_EQ(result, previous == all.size());
    EXPECT_EQ(json_spirit::write(info),
              previous < all.size() ? json_spirit::write(description(all, previous)) : "{}");

    std::uint64_t size = 0;
    EXPECT_TRUE(chain.size(server.endpoint(), id, size));
    const std::int64_t wanted = model_size(all, current);
    negative += wanted < 0 ? 1 : 0;
    EXPECT_EQ(size, static_cast<std::uint64_t>(std::max<std::int64_t>(wanted, 0)));
    EXPECT_EQ(log.lines().size(), wanted < 0 ? 1U : 0U);
    EXPECT_EQ(log.texts("LM_WARNING").size(), wanted < 0 ? 1U : 0U);
    if (HasFailure()) break;
  }
  // Otherwise the chains would prove little.
  EXPECT_GT(found, 100);
  EXPECT_GT(negative, 20);
}

}  // namespace
}  // namespace zqpool::test
