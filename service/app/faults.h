#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "service/api/message.h"

namespace zqpool::service {

enum class Fault_Kind {
  status,               ///< a scripted response; the operation is not carried out
  delay,                ///< only a delay
  reset_before_commit,  ///< reset; the operation is not carried out
  reset_after_commit,   ///< carried out, then reset instead of a response
  cut,                  ///< carried out; the connection is closed after `bytes` of the body
  drip,                 ///< carried out; the response comes `bytes` at a time
  garbage,              ///< carried out; random bytes replace the body or the whole response
  huge,                 ///< carried out; the body is one JSON string of `bytes`
  wrong_type,           ///< carried out; the body, or one member, has another JSON type
};

/// One scripted fault. Immutable except for its counters.
struct Fault {
  std::int64_t id = 0;

  // The requests it matches.
  Method method = Method::other;  ///< other: every method
  std::string path;               ///< the whole path, or a prefix that ends in '*'
  std::string query;              ///< a part of the query as it was sent

  // Which of them it hits: after the first `skip`, every `every`-th with `probability`, at most
  // `times`.
  std::int64_t skip = 0;
  std::int64_t every = 1;
  double probability = 1;
  std::uint64_t seed = 0;
  std::int64_t times = -1;  ///< -1: no limit

  // What it does.
  Fault_Kind kind = Fault_Kind::status;
  std::int64_t delay_ms = 0;  ///< for every kind
  bool delay_after_commit = false;
  unsigned status = 0;
  std::string body;
  bool whole_answer = false;  ///< garbage: headers too
  std::int64_t bytes = 0;     ///< for cut, garbage and huge; the size of a drip's pieces
  std::int64_t interval_ms = 0;
  std::string member;  ///< for wrong_type; "" for the whole body
  std::string type;

  Object description;  ///< the script's entry

  /// Whether the operation is still carried out.
  bool runs_operation() const {
    return kind != Fault_Kind::status && kind != Fault_Kind::reset_before_commit;
  }

  mutable std::atomic<std::int64_t> matched{0};  ///< requests that it matched
  mutable std::atomic<std::int64_t> chosen{0};   ///< of them, those to hit
  mutable std::atomic<std::int64_t> fired{0};    ///< of them, those whose client could notice
};

using Fault_Pointer = std::shared_ptr<const Fault>;

/// "status", "reset_before_commit"...
const char* fault_name(Fault_Kind kind);

/// The scripted faults of this process, in the order they were added. Only the first one that hits
/// a request takes effect. They are not stored in the database. Thread-safe.
class Fault_Script {
 public:
  /// Adds the faults of a document {"faults":[...]}, all or none. Throws Request_Error, whose text
  /// names the place. Returns their identifiers.
  Array add(const Object& document);
  /// The fault that hits a request, or null.
  Fault_Pointer choose(Method method, const std::string& path, const std::string& query);
  /// The script's entries, each with "id", "matched", "chosen" and "fired".
  Array list() const;
  /// Removes all faults and returns their number.
  std::int64_t clear();

 private:
  struct Entry {
    std::shared_ptr<Fault> fault;
    std::mt19937_64 random;
  };

  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
  std::int64_t last_id_ = 0;
};

/// Changes the JSON type of `fault.member` in the body. False if there is no such member: the fault
/// then has no effect.
bool change_type(const Fault& fault, Response& response);

/// `count` random bytes, always the same ones for a seed.
std::string random_bytes(std::uint64_t seed, std::size_t count);

}  // namespace zqpool::service
