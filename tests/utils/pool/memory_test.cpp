#include <ace/Log_Msg.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <new>
#include <string>

#include "tests/support/guards.h"
#include "tests/support/scripted_server.h"
#include "tests/utils/failing_memory.h"
#include "utils/pool/pool_metadata_manager.h"
#include "utils/pool/scsi_target_manager.h"

namespace zqpool::test {
namespace {

using Fail = Failing_Memory::Fail;

const std::string key = "an access key longer than a short string";
const std::string name = "11111111-2222-3333-4444-555555555555";

/// One read with everything it needs made beforehand, so that only its own allocations count.
struct Read {
  std::function<bool(const Endpoint&)> call;
  std::function<void()> forget;   ///< resets the outputs
  std::function<bool()> written;  ///< whether an output was written that a failure must not write
  std::string good_answer;
  bool catches_exceptions = false;  ///< reports exceptions after the exchange as failures
};

class Memory : public testing::Test {
 public:
  Memory() { ACE_Log_Msg::instance()->clr_flags(ACE_Log_Msg::STDERR); }
  ~Memory() override { ACE_Log_Msg::instance()->set_flags(ACE_Log_Msg::STDERR); }

  /// Repeats the read, each time with the next allocation failing, until none fails.
  void run_out_everywhere(const Read& read) {
    server.otherwise(json_answer(200, read.good_answer));
    const Endpoint to = server.endpoint();
    // The first calls allocate what the thread and the process keep.
    for (int i = 0; i < 3; ++i)
      ASSERT_TRUE(read.call(to));
    const long held = settled_blocks(read, to);

    long thrown = 0;
    long refused = 0;
    long number = 1;
    for (bool failed = true; failed; ++number) {
      ASSERT_LT(number, 1000);
      read.forget();
      bool result = false;
      bool left = false;
      {
        const Failing_Memory memory(Fail::once, number);
        try {
          result = read.call(to);
        } catch (const std::bad_alloc&) {
          left = true;
        }
        failed = memory.failed();
      }
      thrown += left ? 1 : 0;
      refused += !left && !result ? 1 : 0;
      EXPECT_TRUE(result || !read.written()) << "allocation " << number;
      EXPECT_TRUE(result || failed);
      EXPECT_EQ(settled_blocks(read, to), held) << "leaked by allocation " << number;
    }
    RecordProperty("allocations", static_cast<int>(number - 2));
    RecordProperty("threw", static_cast<int>(thrown));
    RecordProperty("false", static_cast<int>(refused));
    std::printf("%ld allocations: %ld threw, %ld gave false\n", number - 2, thrown, refused);
    EXPECT_GT(thrown, 0);
    EXPECT_TRUE(read.catches_exceptions || refused == 0);
  }

  /// Blocks held after a good call.
  static long settled_blocks(const Read& read, const Endpoint& to) {
    read.forget();
    EXPECT_TRUE(read.call(to));
    read.forget();
    return blocks_held();
  }

  Scripted_Server server;
  Sleep_Recorder sleeps;
};

const std::string one_row =
    R"({"rows":[{"uuid":"d1","url":"file:///srv/a/rather/long/url","size":5,"tags":["a","b"]}]})";

Read reading(Object& output, const std::string& good_answer,
             std::function<bool(const Endpoint&)> call) {
  Read read;
  read.call = std::move(call);
  read.forget = [&output] { output.clear(); };
  read.written = [&output] { return !output.empty(); };
  read.good_answer = good_answer;
  return read;
}

TEST_F(Memory, get_device_throws_or_succeeds_and_leaks_nothing) {
  Object device;
  run_out_everywhere(reading(device, one_row, [&](const Endpoint& to) {
    return Pool_Metadata_Manager::get_device(to.host, to.port, to.ssl, key, name, device);
  }));
}

TEST_F(Memory, get_device_with_uuid_throws_or_succeeds_and_leaks_nothing) {
  Object device;
  run_out_everywhere(reading(device, one_row, [&](const Endpoint& to) {
    return Pool_Metadata_Manager::get_device_with_uuid(to.host, to.port, to.ssl, key, name, device,
                                                       0);
  }));
}

TEST_F(Memory, get_pool_info_throws_fails_or_succeeds_and_leaks_nothing) {
  Object pool;
  Read read = reading(pool, one_row, [&](const Endpoint& to) {
    return Pool_Metadata_Manager::get_pool_info(to.host, to.port, to.ssl, key, name, pool, 0);
  });
  read.catches_exceptions = true;
  run_out_everywhere(read);
}

TEST_F(Memory, get_pool_info_that_runs_out_while_it_reads_the_answer_fails) {
  server.otherwise(json_answer(200, "{}"));  // the missing rows are put in as null
  const Endpoint to = server.endpoint();
  Object pool;
  const auto call = [&] {
    return Pool_Metadata_Manager::get_pool_info(to.host, to.port, to.ssl, key, name, pool, 0);
  };
  EXPECT_FALSE(call());
  bool last_was_caught = false;
  for (long number = 1; number < 1000; ++number) {
    const Failing_Memory memory(Fail::once, number);
    bool left = false;
    try {
      EXPECT_FALSE(call());
    } catch (const std::bad_alloc&) {
      left = true;
    }
    if (!memory.failed()) break;
    last_was_caught = !left;
  }
  EXPECT_TRUE(last_was_caught);
  EXPECT_TRUE(pool.empty());
}

TEST_F(Memory, get_device_info_throws_or_succeeds_and_leaks_nothing) {
  Object device;
  run_out_everywhere(reading(device, R"({"uuid":"d1","tags":["a","b"]})", [&](const Endpoint& to) {
    return Pool_Metadata_Manager::get_device_info(to.host, to.port, to.ssl, key, &name, name,
                                                  device);
  }));
}

TEST_F(Memory, get_located_devices_throws_or_succeeds_and_leaks_nothing) {
  std::string type;
  Array devices;
  Read read;
  read.call = [&](const Endpoint& to) {
    return Pool_Metadata_Manager::get_located_devices(to.host, to.port, to.ssl, key, name, name,
                                                      type, devices, "a group");
  };
  read.forget = [&] {
    std::string().swap(type);
    Array().swap(devices);
  };
  read.written = [&] { return !devices.empty(); };  // the type may be
  read.good_answer = R"({"type":"a type longer than a short string","devices":[{"uuid":"d1"}]})";
  run_out_everywhere(read);
}

TEST_F(Memory, get_device_takes_at_most_60_allocations) {
  server.otherwise(json_answer(200, one_row));
  const Endpoint to = server.endpoint();
  Object device;
  const auto call = [&] {
    return Pool_Metadata_Manager::get_device(to.host, to.port, to.ssl, key, name, device);
  };
  ASSERT_TRUE(call());
  device.clear();
  const Failing_Memory memory;
  const bool ok = call();
  const long count = memory.count();
  EXPECT_TRUE(ok);
  EXPECT_LE(count, 60);
  RecordProperty("allocations", static_cast<int>(count));
  std::printf("%ld allocations\n", count);
}

SCSI_Target_Manager scsi_pool(const Endpoint& to) {
  return {to.host, to.port, to.ssl, key, name, nullptr};
}

TEST_F(Memory, list_scsi_pool_luns_throws_or_succeeds_and_leaks_nothing) {
  Array luns;
  Read read;
  read.call = [&](const Endpoint& to) { return scsi_pool(to).list_scsi_pool_luns(luns); };
  read.forget = [&] { Array().swap(luns); };
  read.written = [&] { return !luns.empty(); };
  read.good_answer = R"([{"lun_id":"an identifier longer than a short string"},{"lun_num":5}])";
  run_out_everywhere(read);
}

TEST_F(Memory, get_snapshot_info_throws_or_succeeds_and_leaks_nothing) {
  Object info;
  run_out_everywhere(
      reading(info, R"([{"snapshot_id":"an identifier longer than a short string","seq":3}])",
              [&](const Endpoint& to) { return scsi_pool(to).get_snapshot_info(name, info, -1); }));
}

// One answer to all three questions: the snapshot is alone, and the first.
TEST_F(Memory, cal_snapshot_size_throws_fails_or_succeeds_and_leaks_nothing) {
  ACE_UINT64 size = 0;
  Read read;
  read.call = [&](const Endpoint& to) { return scsi_pool(to).cal_snapshot_size(name, size, true); };
  read.forget = [&] { size = 0; };
  read.written = [&] { return size != 0; };
  read.good_answer =
      R"([{"parent_id":"an identifier longer than a short string","seq":3,"excl_size":1,)"
      R"("rfer_size":2}])";
  read.catches_exceptions = true;
  run_out_everywhere(read);
}

/// A list as a service sends it, of so many objects.
std::string list_of(int count) {
  std::string text = "[";
  for (int i = 0; i < count; ++i) {
    text += (i != 0 ? "," : "") +
            (R"({"snapshot_id":"an identifier longer than a short string","seq":)" +
             std::to_string(i)) +
            R"(,"parent_id":"x1","tags":["a"]})";
  }
  return text + "]";
}

long allocations_of(const std::function<void()>& work) {
  work();  // allocates what the thread keeps
  const Failing_Memory memory;
  work();
  return memory.count();
}

// Whoever copied the tree would double them.
TEST_F(Memory, lists_take_the_allocations_of_their_reading_and_few_more) {
  const std::string list = list_of(1000);
  const long of_reading = allocations_of([&] {
    json_spirit::Value value;
    EXPECT_TRUE(json_spirit::read(list, value));
  });
  ASSERT_GT(of_reading, 1000);

  server.otherwise(json_answer(200, list));
  const Endpoint to = server.endpoint();
  Array luns;
  EXPECT_LE(allocations_of([&] { EXPECT_TRUE(scsi_pool(to).list_scsi_pool_luns(luns)); }),
            of_reading + 60);

  server.otherwise([&](const Recorded_Request& request) {
    const bool one = request.target.find("snapshot_id=") != std::string::npos;
    return json_answer(200, one ? R"([{"parent_id":"x1","seq":500}])" : list);
  });
  Object info;
  EXPECT_LE(allocations_of([&] {
              scsi_pool(to).get_previous_snapshot(name, info);
              EXPECT_EQ(json_spirit::object_get_int_or_throw(info, "seq"), 499);
            }),
            of_reading + 120);
}

}  // namespace
}  // namespace zqpool::test
