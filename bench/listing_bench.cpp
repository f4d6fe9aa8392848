// What long lists cost: list_scsi_pool_luns() and get_previous_snapshot() for lists of 10 to
// 100,000 objects, compared with the bare parse of the same answers and with the bare exchange over
// a raw socket. bench/README.md explains what is measured and how.

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/http/clients.h"
#include "bench/http/loopback_service.h"
#include "bench/measure.h"
#include "platform/json/json_spirit.h"
#include "utils/pool/scsi_target_manager.h"

namespace zqpool::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr double total_bar = 1.15;
constexpr double flat_bar = 1.15;
constexpr double memory_bar = 1.75;

constexpr int min_count = 10;
constexpr int min_flat_count = 1000;  // below it the exchange is most of the cost
constexpr Seconds batch_time{0.004};
constexpr int min_turns = 5;

const std::string access_key = "6d0e6b2b1f0c4a5f9f3e7c4b8a1d2e3f6d0e6b2b1f0c4a5f9f3e7c4b8a1d2e3f";
const std::string pool_uuid = "5f0d7c1e-2b7a-4c93-8e0d-3a1f6b9c2d47";

struct Options {
  double seconds = 20;  // per operation
  int max_objects = 100000;
  bool alone = false;
  bool check = false;
};

// --- The lists --------------------------------------------------------------------------------

std::string lun(int i) {
  char text[1024];
  std::snprintf(
      text, sizeof text,
      R"({"lun_id":"0b54e2a0-7f3c-4d8e-9a51-%012x","lun_name":"volume-%06d","pool_id":"%s",)"
      R"("lun_size":%lld,"block_size":4096,"online":%s,"target":"iqn.2026-11.org.zqpool:%06d",)"
      R"("lun_num":%d,"vpd_serial_number":"5a51%012x","retention_type":"normal",)"
      R"("create_time":%d,"remark":null})",
      static_cast<unsigned>(i), i, pool_uuid.c_str(), 1099511627776LL + 512LL * i,
      i % 3 != 0 ? "true" : "false", i, i % 256, static_cast<unsigned>(i), 1767225600 + i);
  return text;
}

std::string snapshot(int i) {
  char text[1024];
  std::snprintf(
      text, sizeof text,
      R"({"snapshot_id":"9c1f4f52-6a0b-4f6e-9d35-%012x","pool_id":"%s",)"
      R"("parent_id":"0b54e2a0-7f3c-4d8e-9a51-000000000001","seq":%d,"excl_size":%lld,)"
      R"("rfer_size":%lld,"recycle":%s,"vpd_serial_number":"5a52%012x","create_time":%d})",
      static_cast<unsigned>(i), pool_uuid.c_str(), i, 1048576LL * (i % 97),
      1099511627776LL + 4096LL * i, i % 2 != 0 ? "true" : "false", static_cast<unsigned>(i),
      1767225600 + i);
  return text;
}

std::string array_of(int count, std::string (*make)(int)) {
  std::string text = "[";
  for (int i = 0; i < count; ++i)
    text += (i != 0 ? "," : "") + make(i);
  text += "]";
  // As the HTTP client hands its bodies over.
  text.reserve(text.size() + json_spirit::read_padding);
  return text;
}

std::string http(const std::string& body) {
  return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

/// An operation on a list of some length, and what it is compared with.
struct Entry {
  std::string name;
  int count = 0;
  std::vector<std::string> bodies;  ///< of its answers, in order
  std::unique_ptr<Loopback_Service> service;
  std::function<bool(Array& handed_out)> operation;
  bool hands_out_list = false;
  std::vector<Call> exchanges;

  int batch = 1;
  // One value per turn, in seconds per call.
  std::vector<double> operation_time, parse_time, exchange_time;
  double operation_memory = 0;  ///< bytes
  double parse_memory = 0;
  double tree_memory = 0;

  bool parse(Array& handed_out) const {
    for (const std::string& body : bodies) {
      json_spirit::Value value;
      if (!json_spirit::read(body, value)) return false;
      if (hands_out_list) handed_out.swap(value.get_array());
    }
    return true;
  }
  bool exchange() const {
    return std::all_of(exchanges.begin(), exchanges.end(), [](const Call& call) { return call(); });
  }
};

SCSI_Target_Manager pool_at(const Loopback_Service& service) {
  return {"127.0.0.1", service.port(), false, access_key, pool_uuid, nullptr};
}

void add_exchange(Entry& entry, const std::string& path) {
  Target target;
  target.transport = Transport::http;
  target.host = "127.0.0.1";
  target.port = entry.service->port();
  target.access_key = access_key;
  target.request_path = path;
  entry.exchanges.push_back(floor(target)());
}

Entry luns(int count) {
  Entry entry;
  entry.name = "list_scsi_pool_luns";
  entry.hands_out_list = true;
  entry.count = count;
  entry.bodies.push_back(array_of(count, lun));
  entry.service =
      std::make_unique<Loopback_Service>(std::vector<Prepared_Answer>{{"", http(entry.bodies[0])}});
  entry.operation = [pool = pool_at(*entry.service), count](Array& all) {
    return pool.list_scsi_pool_luns(all) && all.size() == static_cast<std::size_t>(count);
  };
  add_exchange(entry, "/zq/r/scsipool/lun?pool_id=" + pool_uuid);
  return entry;
}

Entry predecessor(int count) {
  const std::string id = "9c1f4f52-6a0b-4f6e-9d35-000000000001";
  Entry entry;
  entry.name = "get_previous_snapshot";
  entry.count = count;
  // The newest snapshot: every other one is the best candidate so far at some point of the walk.
  std::string newest = "[" + snapshot(count - 1) + "]";
  newest.reserve(newest.size() + json_spirit::read_padding);
  entry.bodies.push_back(std::move(newest));
  entry.bodies.push_back(array_of(count, snapshot));
  entry.service = std::make_unique<Loopback_Service>(std::vector<Prepared_Answer>{
      {"&snapshot_id=", http(entry.bodies[0])}, {"", http(entry.bodies[1])}});
  entry.operation = [pool = pool_at(*entry.service), id, count](Array&) {
    Object info;
    pool.get_previous_snapshot(id, info);
    return !info.empty() && json_spirit::object_get_int_or_throw(info, "seq") == count - 2;
  };
  add_exchange(entry, "/zq/r/scsipool/snapshot?pool_id=" + pool_uuid + "&snapshot_id=" + id);
  add_exchange(entry, "/zq/r/scsipool/snapshot?pool_id=" + pool_uuid +
                          "&lun_id=0b54e2a0-7f3c-4d8e-9a51-000000000001");
  return entry;
}

// --- Time -------------------------------------------------------------------------------------

using Work = bool (*)(const Entry&, Array& handed_out);
struct Measured {
  Work work;
  std::vector<double> Entry::*times;
};
constexpr std::array<Measured, 3> measured = {
    {{[](const Entry& entry, Array& out) { return entry.operation(out); }, &Entry::operation_time},
     {[](const Entry& entry, Array& out) { return entry.parse(out); }, &Entry::parse_time},
     {[](const Entry& entry, Array&) { return entry.exchange(); }, &Entry::exchange_time}}};

double time_of(const Entry& entry, Work work) {
  Seconds time{0};
  for (int i = 0; i < entry.batch; ++i) {
    {
      Array handed_out;  // its destruction is the caller's and not measured
      const auto start = Clock::now();
      if (!work(entry, handed_out)) throw std::runtime_error(entry.name + ": failed");
      time += Clock::now() - start;
    }
    // Makes malloc merge the freed blocks now, not while time is measured.
    void* volatile large = std::malloc(2048);
    std::free(large);
  }
  return time.count() / entry.batch;
}

/// Each turn measures all lists, so that noise affects short and long ones alike.
void take_turns(std::vector<Entry>& entries, Seconds limit) {
  std::vector<std::pair<Entry*, Measured>> order;
  for (Entry& entry : entries) {
    time_of(entry, measured[0].work);
    entry.batch =
        std::clamp(static_cast<int>(batch_time.count() / time_of(entry, measured[0].work)), 1, 200);
    for (const Measured& one : measured)
      order.emplace_back(&entry, one);
  }
  std::minstd_rand generator(1);
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
  for (int turn = 0; turn < min_turns || Clock::now() < end; ++turn) {
    std::shuffle(order.begin(), order.end(), generator);
    for (const auto& [entry, one] : order)
      (entry->*one.times).push_back(time_of(*entry, one.work));
  }
}

// --- Memory -----------------------------------------------------------------------------------

/// A line of /proc/self/status, in bytes.
double status_of(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind(key + ":", 0) == 0) return 1024 * std::stod(line.substr(key.size() + 1));
  }
  throw std::runtime_error("/proc/self/status has no " + key);
}

/// Resident memory after giving back what is free. Resets the peak, too.
double settled_memory() {
  ::malloc_trim(0);
  std::ofstream("/proc/self/clear_refs") << "5";
  return status_of("VmRSS");
}

/// Runs `work` in a child process and returns its result.
double in_a_child(const std::function<double()>& work) {
  int ends[2];
  if (::pipe(ends) != 0) throw std::runtime_error("no pipe");
  const pid_t child = ::fork();
  if (child == 0) {
    double figure = -1;
    try {
      figure = work();
    } catch (const std::exception&) {
      // Reported as a negative figure.
    }
    const bool written = ::write(ends[1], &figure, sizeof figure) == sizeof figure;
    ::_exit(written ? 0 : 1);
  }
  ::close(ends[1]);
  double figure = -1;
  const bool got = ::read(ends[0], &figure, sizeof figure) == sizeof figure;
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  if (!got || figure < 0) throw std::runtime_error("the child process failed");
  return figure;
}

/// settled_memory() after one small operation, so that what a process needs only once, mostly pages
/// of code, does not count.
double memory_after(const Entry& small) {
  Array handed_out;
  if (!small.operation(handed_out)) throw std::runtime_error(small.name + ": failed");
  Array().swap(handed_out);
  settled_memory();
  return settled_memory();
}

/// Peak memory of the work.
double peak_of(const Entry& entry, const Entry& small, Work work) {
  return in_a_child([&entry, &small, work] {
    const double before = memory_after(small);
    Array handed_out;
    return work(entry, handed_out) ? status_of("VmHWM") - before : -1.0;
  });
}

/// Memory of the parsed answers alone.
double tree_memory_of(const Entry& entry, const Entry& small) {
  return in_a_child([&entry, &small] {
    const double before = memory_after(small);
    std::vector<json_spirit::Value> trees(entry.bodies.size());
    for (std::size_t i = 0; i < trees.size(); ++i) {
      if (!json_spirit::read(entry.bodies[i], trees[i])) return -1.0;
    }
    return settled_memory() - before;
  });
}

void measure_memory(Entry& entry, const Entry& small) {
  entry.operation_memory = peak_of(entry, small, measured[0].work);
  entry.parse_memory = peak_of(entry, small, measured[1].work);
  entry.tree_memory = tree_memory_of(entry, small);
}

// --- Results ----------------------------------------------------------------------------------

double total_ratio(const Entry& entry) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < entry.operation_time.size(); ++i) {
    ratios.push_back(entry.operation_time[i] / (entry.parse_time[i] + entry.exchange_time[i]));
  }
  return median(std::move(ratios));
}

/// The time per object in one list, to that in another.
double object_ratio(const Entry& entry, const Entry& to) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < entry.operation_time.size(); ++i) {
    ratios.push_back(entry.operation_time[i] / entry.count / (to.operation_time[i] / to.count));
  }
  return median(std::move(ratios));
}

void print(const std::vector<Entry>& entries) {
  std::printf("\n%-22s %8s %10s %10s %10s %10s %8s %8s %8s %8s\n", "", "objects", "ms/call",
              "parse", "exchange", "ns/object", "to both", "tree MB", "peak", "parse's");
  for (const Entry& entry : entries) {
    std::printf("%-22s %8d %10.3f %10.3f %10.3f %10.1f %8.3f %8.2f", entry.name.c_str(),
                entry.count, 1e3 * median(entry.operation_time), 1e3 * median(entry.parse_time),
                1e3 * median(entry.exchange_time), 1e9 * median(entry.operation_time) / entry.count,
                total_ratio(entry), entry.tree_memory / 1e6);
    if (entry.count >= min_flat_count) {
      std::printf(" %8.3f %8.3f", entry.operation_memory / entry.tree_memory,
                  entry.parse_memory / entry.tree_memory);
    }
    std::printf("\n");
  }
}

void judge(const std::vector<Entry>& entries, Verdict& verdict) {
  const Entry* first_flat = nullptr;
  for (const Entry& entry : entries) {
    const std::string name = entry.name + ", " + std::to_string(entry.count) + " objects";
    verdict.at_most(name + ", to bare parse and exchange", total_ratio(entry), total_bar);
    if (entry.count < min_flat_count) continue;
    if (first_flat == nullptr) first_flat = &entry;
    verdict.at_most(name + ", an object to one of " + std::to_string(min_flat_count),
                    object_ratio(entry, *first_flat), flat_bar);
    verdict.at_most(name + ", peak memory to the tree's",
                    entry.operation_memory / entry.tree_memory, memory_bar);
  }
}

Options parse(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    const auto value = [&]() -> const char* {
      if (++i == argc) throw std::invalid_argument(name + " needs a value");
      return argv[i];
    };
    if (name == "--check") {
      options.check = true;
    } else if (name == "--alone") {
      options.alone = true;
    } else if (name == "--seconds") {
      options.seconds = std::stod(value());
    } else if (name == "--max-objects") {
      options.max_objects = std::stoi(value());
    } else if (name.rfind("--benchmark_", 0) != 0) {  // for the other benchmarks
      throw std::invalid_argument("options: --check --alone --seconds N --max-objects N");
    }
  }
  return options;
}

bool run(const Options& options) {
  std::array<std::vector<Entry>, 2> all;
  if (options.alone) take_processor(1);  // for the services' threads
  for (const int count : {min_count, min_flat_count, 10000, 100000}) {
    if (count > options.max_objects) continue;
    all[0].push_back(luns(count));
    all[1].push_back(predecessor(count));
  }
  if (options.alone) take_processor(0);
  // Before the turns: later, children would inherit free memory and allocate none.
  for (auto& entries : all) {
    for (Entry& entry : entries)
      measure_memory(entry, entries.front());
  }
  // Keep freed memory, or the turns would measure how fast the kernel clears pages.
  constexpr int plenty = 1 << 30;
  ::mallopt(M_TRIM_THRESHOLD, plenty);
  ::mallopt(M_MMAP_THRESHOLD, plenty);
  Verdict verdict;
  for (auto& entries : all) {
    take_turns(entries, Seconds(options.seconds));
    print(entries);
    judge(entries, verdict);
  }
  return verdict.all_met();
}

}  // namespace
}  // namespace zqpool::bench

int main(int argc, char** argv) {
  try {
    const auto options = zqpool::bench::parse(argc, argv);
    return zqpool::bench::run(options) || !options.check ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "listing_bench: %s\n", error.what());
    return 2;
  }
}
