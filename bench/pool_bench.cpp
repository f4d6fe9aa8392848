// The cost of reading a pool's description and a device's path.
//
// "nodes" is a deduplication pool on many nodes: every URL is read and kept. "last" is a pool whose
// only master is its last storage: all are looked at, one is taken. The number of allocations shows
// that no description is copied. Paths are compared with boost::regex_match() of the same
// expression, without copying the groups.

#include <boost/regex.hpp>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/http/thread_counters.h"
#include "bench/medians.h"
#include "platform/json/json_spirit.h"
#include "utils/pool/storage_pool_helpers.h"
#include "utils/pool/utils.h"

namespace {

constexpr int counts[] = {1, 10, 1000};

std::string storage(int i, const char* role) {
  char text[512];
  std::snprintf(text, sizeof text,
                R"({"uuid":"7c1e2b40-9d3f-4e8a-8b51-%012x","pool_uuid":"5f0d7c1e-2b7a-4c93",)"
                R"("url":"dedups://node%04d.storage.example:9443/pool/day","status":"online",)"
                R"("extended_attrs":{"node_id":%d,"role":"%s","rack":"r-%02d","weight":10}})",
                static_cast<unsigned>(i), i % 10000, i, role, i % 40);
  return text;
}

/// The description as a parsed tree.
Object description(int count, bool nodes) {
  std::string text = nodes ? R"({"multidevice":true,"storages":[)" : R"({"storages":[)";
  for (int i = 0; i < count; ++i) {
    text += (i != 0 ? "," : "") + storage(i, i + 1 == count ? "master" : "slave");
  }
  json_spirit::Value value;
  if (!json_spirit::read(text + "]}", value)) std::abort();
  return value.get_obj();
}

void parse(const Object& pool) {
  Pool_Info info;
  if (!parse_pool_info(pool, info, nullptr, nullptr)) std::abort();
  benchmark::DoNotOptimize(info);
}

std::uint64_t allocations_of_parse(const Object& pool) {
  const std::uint64_t before = zqpool::bench::usage().allocations;
  parse(pool);
  return zqpool::bench::usage().allocations - before;
}

struct Shape {
  const char* name;
  bool nodes;
};
constexpr Shape shapes[] = {{"nodes", true}, {"last", false}};

std::string name_of(const Shape& shape, int count) {
  return std::string("parse_pool_info/") + shape.name + "/" + std::to_string(count);
}

struct Path {
  const char* name;
  const char* expression;
  std::string text;
  bool (*take)(const std::string& path);
};

bool take_http(const std::string& path) {
  std::string device;
  std::string uuid;
  std::string prefix;
  return parse_http_uri(path, &device, &uuid, &prefix);
}

bool take_lanfree(const std::string& path) {
  std::string device;
  std::string pool;
  std::string lun;
  std::string prefix;
  return parse_lanfree_uri(path, &device, &pool, &lun, &prefix);
}

const Path paths[] = {
    {"parse_http_uri", "^/(zq/(data|corundel|ext-data/[^/]+)/([^/]+))(/.*)?$",
     "/zq/ext-data/bucket7/7c1e2b40-9d3f-4e8a-8b51-3a1f6b9c2d47/host-17/2026-11-21/full.img",
     take_http},
    {"parse_lanfree_uri", "^/(([^/]*)(/([^/]*))?/zq)(/.*)?$",
     "/5f0d7c1e-2b7a-4c93-8e0d-3a1f6b9c2d47/0b54e2a0-7f3c-4d8e/zq/host-17/2026-11-21/full.img",
     take_lanfree},
};

void run_path(benchmark::State& state, const Path& path) {
  for (auto _ : state) {
    if (!path.take(path.text)) state.SkipWithError("no match");
  }
}

void run_bare(benchmark::State& state, const Path& path) {
  const boost::regex expression(path.expression);
  for (auto _ : state) {
    boost::smatch match;
    if (!boost::regex_match(path.text, match, expression)) state.SkipWithError("no match");
    benchmark::DoNotOptimize(match);
  }
}

}  // namespace

int main(int argc, char** argv) {
  zqpool::bench::initialize_for_medians(argc, argv);
  for (const Shape& shape : shapes) {
    for (const int count : counts) {
      benchmark::RegisterBenchmark(
          name_of(shape, count).c_str(),
          [pool = description(count, shape.nodes)](benchmark::State& state) {
            for (auto _ : state)
              parse(pool);
          });
    }
  }
  for (const Path& path : paths) {
    benchmark::RegisterBenchmark(path.name,
                                 [&path](benchmark::State& state) { run_path(state, path); });
    benchmark::RegisterBenchmark((std::string("bare/") + path.name).c_str(),
                                 [&path](benchmark::State& state) { run_bare(state, path); });
  }
  zqpool::bench::Median_Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  std::printf("\nparse_pool_info, medians of CPU time\n%-8s%10s%14s%14s\n", "shape", "storages",
              "ns a storage", "allocations");
  for (const Shape& shape : shapes) {
    double at_ten = 0;
    double a_storage = 0;
    for (const int count : counts) {
      a_storage = reporter.nanoseconds[name_of(shape, count)] / count;
      if (count == 10) at_ten = a_storage;
      std::printf(
          "%-8s%10d%14.1f%14llu\n", shape.name, count, a_storage,
          static_cast<unsigned long long>(allocations_of_parse(description(count, shape.nodes))));
    }
    const double growth = a_storage / at_ten;
    std::printf("%-8s from 10 to 1,000: %.2fx (%s 1.10x)\n", shape.name, growth,
                growth <= 1.1 ? "meets" : "MISSES");
  }
  std::printf("\nPaths, medians of CPU time\n%-20s%10s%10s%8s\n", "", "ns", "bare", "ratio");
  for (const Path& path : paths) {
    const double ours = reporter.nanoseconds[path.name];
    const double bare = reporter.nanoseconds[std::string("bare/") + path.name];
    std::printf("%-20s%10.1f%10.1f%7.2fx\n", path.name, ours, bare, ours / bare);
  }
  return 0;
}
