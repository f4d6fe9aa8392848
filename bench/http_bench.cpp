// The cost of one catalog read over HTTP and HTTPS, compared with the raw floor and with other HTTP
// clients that do the same job.
//
// All are measured in one run against equal services, in short batches that take turns in random
// order, so that noise hits all alike. A ratio is the median, over the turns, of a client's time
// divided by the floor's in the same turn. bench/README.md says more.

#include <signal.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/http/clients.h"
#include "bench/http/loopback_service.h"
#include "bench/http/thread_counters.h"
#include "bench/measure.h"
#include "platform/http/http_options.h"
#include "tests/support/test_certificates.h"

namespace zqpool::bench {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr double http_bar = 1.10;
constexpr double tls_bar = 1.05;
constexpr double allocation_bar = 60;

constexpr Seconds batch_time{0.004};
constexpr Seconds load_time{0.1};
constexpr int load_repetitions = 3;
constexpr std::array<int, 4> load_threads = {1, 2, 8, 32};

enum class Role { floor, control, library, peer };

struct Client {
  const char* key;  // on the command line
  const char* name;
  Role role;
  Make_Call (*make)(const Target&);
  bool waits_over_http = false;  // for the service to close, as the library does
};

const std::vector<Client>& clients() {
  static const std::vector<Client> all = {
      {"floor", "floor", Role::floor, &floor},
      {"control", "floor, once more", Role::control, &floor},
      {"zqpool", "zqpool get_device", Role::library, &library},
      {"beast", "Boost.Beast", Role::peer, &beast, true},
      {"httplib", "cpp-httplib", Role::peer, &httplib},
      {"curl-tuned", "libcurl, tuned", Role::peer, &curl_tuned},
      {"curl-naive", "libcurl, naive", Role::peer, &curl_naive},
  };
  return all;
}

struct Way {
  const char* key;  // on the command line
  const char* name;
  Transport transport;
};

constexpr std::array<Way, 3> ways = {{
    {"http", "HTTP", Transport::http},
    {"full", "HTTPS, full handshake", Transport::https_full},
    {"resumed", "HTTPS, resumed", Transport::https_resumed},
}};

struct Options {
  double seconds = 10;  // per transport
  bool load = true;
  bool alone = false;
  bool check = false;
  std::vector<std::string> clients;  // keys; none for all
  std::vector<std::string> ways;
  int calls = 0;  // make so many calls and measure nothing
};

bool is_wanted(const std::vector<std::string>& keys, const char* key) {
  return keys.empty() || std::find(keys.begin(), keys.end(), key) != keys.end();
}

/// One client over one transport, and its figures. Each has its own service, so that its ports in
/// TIME_WAIT do not hinder others.
struct Entry {
  const Client* client;
  std::unique_ptr<Loopback_Service> service;
  Make_Call make_call;
  Call call;
  int batch = 1;

  std::vector<double> all_micros;  // one value per call
  // One value per turn: the median time of its calls, and means per call.
  std::vector<double> micros;
  std::vector<double> cpu_micros;
  std::vector<double> allocations;
  std::vector<double> instructions;
  std::array<std::vector<double>, load_threads.size()> per_second;

  bool resumes() const { return service->resumed() * 10 > service->answered() * 9; }
};

std::string prepared_answer(const std::string& uuid, const std::string& url) {
  const std::string body =
      R"({"rows":[{"uuid":")" + uuid + R"(","pool_uuid":"5f0d7c1e-2b7a-4c93-8e0d-3a1f6b9c2d47",)" +
      R"("url":")" + url + R"(","type":"dedup","node_id":7,"total_size":17592186044416,)" +
      R"("free_size":9895604649984,"online":true,"read_only":false,"create_time":1767225600}]})";
  return "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

Entry make_entry(const Client& client, Transport transport) {
  const auto& certificates = test::Test_Certificates::instance();
  Target target;
  target.transport = transport;
  target.host = "127.0.0.1";
  target.ca_file = certificates.ca_file;
  target.access_key = "6d0e6b2b1f0c4a5f9f3e7c4b8a1d2e3f6d0e6b2b1f0c4a5f9f3e7c4b8a1d2e3f";
  target.device_uuid = "9c1f4f52-6a0b-4f6e-9d35-1f2e3d4c5b6a";
  target.device_url = "https://storage-7.example.test:9443/pool/device-12";
  target.request_path =
      "/zq/r/storage/catalog/device?url=https%3A%2F%2Fstorage-7.example.test%3A9443%2Fpool%2F"
      "device-12";
  Entry entry;
  entry.client = &client;
  entry.service = std::make_unique<Loopback_Service>(
      transport, certificates.server.certificate_file, certificates.server.key_file,
      prepared_answer(target.device_uuid, target.device_url));
  target.port = entry.service->port();
  entry.make_call = client.make(target);
  entry.call = entry.make_call();
  return entry;
}

void call_often(const Entry& entry, int times) {
  for (int i = 0; i < times; ++i) {
    if (!entry.call()) throw std::runtime_error(std::string(entry.client->name) + ": call failed");
  }
}

/// Warms up and sets how many calls make a batch.
void prepare(Entry& entry) {
  constexpr int few = 20;
  call_often(entry, few);
  const auto start = Clock::now();
  call_often(entry, few);
  const Seconds one = (Clock::now() - start) / few;
  entry.batch = std::clamp(static_cast<int>(batch_time / one), 3, 200);
}

void take_turn(Entry& entry, const Instruction_Counter& instructions) {
  // Not counted: the processor's caches are full of the previous client's data.
  call_often(entry, 1);
  const auto calls = static_cast<double>(entry.batch);
  const auto instructions_before = instructions.read();
  const Usage before = usage();
  std::vector<double> times;
  times.reserve(static_cast<std::size_t>(entry.batch));
  const std::uint64_t own_allocations = usage().allocations - before.allocations;
  for (int i = 0; i < entry.batch; ++i) {
    const auto start = Clock::now();
    call_often(entry, 1);
    times.push_back(Seconds(Clock::now() - start).count() * 1e6);
  }
  const Usage after = usage();
  const auto instructions_after = instructions.read();
  entry.all_micros.insert(entry.all_micros.end(), times.begin(), times.end());
  entry.micros.push_back(median(std::move(times)));
  entry.cpu_micros.push_back(static_cast<double>(after.cpu_ns - before.cpu_ns) / 1e3 / calls);
  entry.allocations.push_back(
      static_cast<double>(after.allocations - before.allocations - own_allocations) / calls);
  if (instructions_before && instructions_after) {
    entry.instructions.push_back(static_cast<double>(*instructions_after - *instructions_before) /
                                 calls);
  }
}

void take_turns(std::deque<Entry>& entries, Seconds limit) {
  const Instruction_Counter instructions;
  std::minstd_rand generator(1);
  std::vector<Entry*> order;
  order.reserve(entries.size());
  for (Entry& entry : entries)
    order.push_back(&entry);
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
  do {
    std::shuffle(order.begin(), order.end(), generator);
    for (Entry* const entry : order)
      take_turn(*entry, instructions);
  } while (Clock::now() < end);
}

/// Calls per second of all threads together.
double load(const Entry& entry, int thread_count) {
  std::promise<Clock::time_point> start;
  const std::shared_future<Clock::time_point> started = start.get_future().share();
  std::deque<std::promise<void>> ready(static_cast<std::size_t>(thread_count));
  std::vector<std::future<int>> counts;
  counts.reserve(ready.size());
  for (auto& is_ready : ready) {
    counts.push_back(std::async(std::launch::async, [&entry, started, &is_ready] {
      Call call;
      bool good = false;
      try {
        call = entry.make_call();
        good = call();
      } catch (const std::exception&) {
        // Reported below, once all threads are ready.
      }
      is_ready.set_value();
      const auto end = started.get() + std::chrono::duration_cast<Clock::duration>(load_time);
      int count = 0;
      while (good && Clock::now() < end) {
        good = call();
        ++count;
      }
      if (!good) throw std::runtime_error(std::string(entry.client->name) + ": call failed");
      return count;
    }));
  }
  for (auto& is_ready : ready)
    is_ready.get_future().wait();
  const auto begin = Clock::now();
  start.set_value(begin);
  int total = 0;
  for (auto& count : counts)
    total += count.get();
  return total / Seconds(Clock::now() - begin).count();
}

void take_loads(std::deque<Entry>& entries) {
  for (int repetition = 0; repetition < load_repetitions; ++repetition) {
    for (std::size_t level = 0; level < load_threads.size(); ++level) {
      for (Entry& entry : entries)
        entry.per_second[level].push_back(load(entry, load_threads[level]));
    }
  }
}

// --- Results ----------------------------------------------------------------------------------

const Entry* find(const std::deque<Entry>& entries, Role role) {
  for (const Entry& entry : entries) {
    if (entry.client->role == role) return &entry;
  }
  return nullptr;
}

std::vector<double> ratios(const Entry& entry, const Entry& to) {
  std::vector<double> result(entry.micros.size());
  std::transform(entry.micros.begin(), entry.micros.end(), to.micros.begin(), result.begin(),
                 std::divides<>());
  return result;
}

void print_table(const char* title, const std::deque<Entry>& entries) {
  std::printf("\n%s\n%-22s %8s %8s  %-11s %8s %8s %8s %9s   ", title, "", "us/call", "to floor",
              "(quartiles)", "99th us", "CPU us", "allocs", "instr");
  std::printf("calls/s, thousands, with %d %d %d %d threads\n", load_threads[0], load_threads[1],
              load_threads[2], load_threads[3]);
  const Entry* const floor = find(entries, Role::floor);
  for (const Entry& entry : entries) {
    std::printf("%-22s %8.1f", entry.client->name, median(entry.micros));
    if (floor != nullptr) {
      const std::vector<double> to_floor = ratios(entry, *floor);
      std::printf(" %8.3f  %.2f - %.2f", median(to_floor), median(to_floor, 0.25),
                  median(to_floor, 0.75));
    } else {
      std::printf(" %8s  %11s", "-", "");
    }
    std::printf(" %8.0f %8.1f %8.0f", median(entry.all_micros, 0.99), median(entry.cpu_micros),
                median(entry.allocations));
    if (entry.instructions.empty()) {
      std::printf(" %9s   ", "-");
    } else {
      std::printf(" %9.0f   ", median(entry.instructions));
    }
    for (const auto& rates : entry.per_second) {
      if (!rates.empty()) std::printf(" %6.1f", median(rates) / 1000);
    }
    std::printf("\n");
  }
}

void print_who_cannot_resume(const std::deque<Entry>& entries) {
  for (const Entry& entry : entries) {
    if (!entry.resumes()) {
      std::printf("%s: full handshakes, it resumed none of its sessions.\n", entry.client->name);
    }
  }
}

void judge(const Way& way, const std::deque<Entry>& entries, Verdict& verdict) {
  const Entry* const floor = find(entries, Role::floor);
  const Entry* const library = find(entries, Role::library);
  if (floor == nullptr || library == nullptr) return;
  const std::string name = way.name;
  const bool plain = way.transport == Transport::http;
  verdict.at_most(name + ", whole operation to the raw floor", median(ratios(*library, *floor)),
                  plain ? http_bar : tls_bar);
  verdict.at_most(name + (plain ? ", heap allocations" : ", heap allocations beyond OpenSSL's"),
                  median(library->allocations) - median(floor->allocations), allocation_bar);
  const Entry* nearest = nullptr;
  double figure = 0;
  for (const Entry& entry : entries) {
    if (entry.client->role != Role::peer || (plain && !entry.client->waits_over_http)) continue;
    const double part = median(ratios(*library, entry));
    if (part > figure) {
      figure = part;
      nearest = &entry;
    }
  }
  if (nearest != nullptr) {
    verdict.ahead(name + ", ahead of every peer" + (plain ? " that waits for the end" : ""),
                  nearest->client->name, figure);
  }
  if (way.transport == Transport::https_resumed) {
    verdict.holds(name + ", sessions were resumed", library->resumes() && floor->resumes());
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
    } else if (name == "--no-load") {
      options.load = false;
    } else if (name == "--alone") {
      options.alone = true;
      options.load = false;
    } else if (name == "--seconds") {
      options.seconds = std::stod(value());
    } else if (name == "--client") {
      options.clients.emplace_back(value());
    } else if (name == "--way") {
      options.ways.emplace_back(value());
    } else if (name == "--calls") {
      options.calls = std::stoi(value());
    } else if (name.rfind("--benchmark_", 0) != 0) {  // for the other benchmarks
      throw std::invalid_argument(
          "options: --check --alone --no-load --seconds N --client KEY... --way KEY... --calls N");
    }
  }
  return options;
}

bool run(const Options& options) {
  HTTP_Options settings = HTTP_Options::get();
  settings.ca_file = test::Test_Certificates::instance().ca_file;
  settings.connect_timeout = settings.exchange_timeout = std::chrono::seconds(10);
  HTTP_Options::set(settings);

  if (options.alone) take_processor(1);  // for the services' threads
  std::array<std::deque<Entry>, ways.size()> all;
  for (std::size_t i = 0; i < ways.size(); ++i) {
    if (!is_wanted(options.ways, ways[i].key)) continue;
    for (const Client& client : clients()) {
      if (!is_wanted(options.clients, client.key)) continue;
      all[i].push_back(make_entry(client, ways[i].transport));
    }
  }
  if (options.alone) take_processor(0);
  if (options.calls != 0) {
    for (const auto& entries : all) {
      for (const Entry& entry : entries)
        call_often(entry, options.calls);
    }
    return true;
  }

  if (!Instruction_Counter().works()) {
    std::printf("This machine has no instruction counter: no figures for that.\n");
  }
  for (auto& entries : all) {
    for (Entry& entry : entries)
      prepare(entry);
    if (!entries.empty()) take_turns(entries, Seconds(options.seconds));
  }
  for (auto& entries : all) {
    if (options.load) take_loads(entries);
  }
  Verdict verdict;
  for (std::size_t i = 0; i < ways.size(); ++i) {
    if (all[i].empty()) continue;
    print_table(ways[i].name, all[i]);
    if (ways[i].transport == Transport::https_resumed) print_who_cannot_resume(all[i]);
  }
  std::printf("\n");
  for (std::size_t i = 0; i < ways.size(); ++i)
    judge(ways[i], all[i], verdict);
  return verdict.all_met();
}

}  // namespace
}  // namespace zqpool::bench

int main(int argc, char** argv) {
  // The floor and some of the peers write to sockets that their service may have closed.
  signal(SIGPIPE, SIG_IGN);
  try {
    const auto options = zqpool::bench::parse(argc, argv);
    return zqpool::bench::run(options) || !options.check ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "http_bench: %s\n", error.what());
    return 2;
  }
}
