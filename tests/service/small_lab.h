#pragma once

#include <string>

namespace zqpool::test {

/// Identifiers: "a" or "d" and a number of at most two digits, as UUIDs.
inline std::string uuid_of(const std::string& kind, int number) {
  return "00000000-0000-4000-8000-00000000" + kind + (number < 10 ? "00" : "0") +
         std::to_string(number);
}
inline std::string pool_uuid(int number) {
  return uuid_of("a", number);
}
inline std::string device_uuid(int number) {
  return uuid_of("d", number);
}

/// Two pools. Pool 1 has devices 1 and 2 and a copy, 3, of the first; pool 2 has device 4, whose
/// URL is also device 2's. Pool 3 is empty.
inline std::string small_lab() {
  return R"({"comment":"for tests",
  "pools":[
    {"uuid":")" +
         pool_uuid(1) + R"(","name":"one","type":"file","description":"first",
     "created":"2026-01-02T03:04:05Z"},
    {"uuid":")" +
         pool_uuid(2) + R"(","name":"two","type":"object","state":"readonly"},
    {"uuid":")" +
         pool_uuid(3) + R"(","name":"three","type":"scsi"}],
  "devices":[
    {"uuid":")" +
         device_uuid(1) + R"(","pool_uuid":")" + pool_uuid(1) + R"(","name":"d1",
     "type":"disk","url":"file:///srv/a","size":1000,"used":400,
     "created":"2026-01-02T03:04:06Z"},
    {"uuid":")" +
         device_uuid(2) + R"(","pool_uuid":")" + pool_uuid(1) + R"(","name":"d2",
     "type":"disk","url":"file:///srv/a/inner/","path_prefix":"/pools//x/","size":500},
    {"uuid":")" +
         device_uuid(3) + R"(","pool_uuid":")" + pool_uuid(1) + R"(","name":"d3",
     "type":"tape","role":"slave","url":"file:///","size":1000,"used":400,"state":"offline"},
    {"uuid":")" +
         device_uuid(4) + R"(","pool_uuid":")" + pool_uuid(2) + R"(","name":"d4",
     "type":"object","url":"file:///srv/a/inner","size":9000,
     "bound_host":{"host_id":"h1","sysname":"db7"}}],
  "metadata":[
    {"pool_uuid":")" +
         pool_uuid(1) + R"(","device_uuid":")" + device_uuid(1) + R"(",
     "path":"/jobs","type":"dir","size":12},
    {"pool_uuid":")" +
         pool_uuid(1) + R"(","device_uuid":")" + device_uuid(2) + R"(",
     "path":"/jobs","type":"dir","grouping":"weekly"},
    {"pool_uuid":")" +
         pool_uuid(1) + R"(","device_uuid":")" + device_uuid(2) + R"(",
     "path":"/jobs/mail/full.img","size":0},
    {"pool_uuid":")" +
         pool_uuid(1) + R"(","device_uuid":")" + device_uuid(3) + R"(",
     "path":"/","type":"dir","grouping":"all"}]})";
}

}  // namespace zqpool::test
