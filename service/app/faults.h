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
  status,               ///< another answer; the operation is not carried out
  delay,                ///< nothing but the wait
  reset_before_commit,  ///< the connection is reset, the operation not carried out
  reset_after_commit,   ///< carried out, then reset instead of an answer
  cut,                  ///< carried out; the connection ends after so many bytes of the body
  drip,                 ///< carried out; the answer comes a few bytes at a time
  garbage,              ///< carried out; random bytes instead of the body or of the whole answer
  huge,                 ///< carried out; a body of so many bytes, one JSON string
  wrong_type,           ///< carried out; the answer, or one member of it, is of another JSON type
};

/// One scripted fault. What it does never changes; its counters may be read from any thread.
struct Fault {
  std::int64_t id = 0;

  // Which requests it is for.
  Method method = Method::other;  ///< other: every method
  std::string path;               ///< whole, or its beginning when it ends in '*'
  std::string query;              ///< appears in the query as it was sent

  // Which of them it hits: the first `skip` not, then every `every`-th, by chance, `times` at most.
  std::int64_t skip = 0;
  std::int64_t every = 1;
  double probability = 1;
  std::uint64_t seed = 0;
  std::int64_t times = -1;  ///< -1: no end

  // What it does.
  Fault_Kind kind = Fault_Kind::status;
  std::int64_t delay_ms = 0;  ///< also with every other kind
  bool delay_after_commit = false;
  unsigned status = 0;
  std::string body;
  bool whole_answer = false;  ///< garbage: not only the body
  std::int64_t bytes = 0;     ///< cut, garbage, huge; with drip per piece
  std::int64_t interval_ms = 0;
  std::string member;  ///< wrong_type: "" for the answer itself
  std::string type;

  Object description;  ///< as it was scripted

  /// Whether the operation is carried out all the same.
  bool runs_operation() const {
    return kind != Fault_Kind::status && kind != Fault_Kind::reset_before_commit;
  }

  mutable std::atomic<std::int64_t> matched{0};  ///< requests it was for
  mutable std::atomic<std::int64_t> chosen{0};   ///< of them, those it was to hit
  mutable std::atomic<std::int64_t> fired{0};    ///< of them, those where it really happened
};

using Fault_Pointer = std::shared_ptr<const Fault>;

/// "status", "reset_before_commit"...
const char* fault_name(Fault_Kind kind);

/// The scripted faults of this process, in the order in which they were added. The first that hits
/// a request is done to it, alone. They are not part of the state. Thread-safe.
class Fault_Script {
 public:
  /// Adds the faults of a document {"faults":[...]}, all or none. Throws Request_Error, whose text
  /// names the place. Returns their identifiers.
  Array add(const Object& document);
  /// Null: nothing is to happen.
  Fault_Pointer choose(Method method, const std::string& path, const std::string& query);
  /// Each fault as it was scripted, with "id", "matched", "chosen" and "fired".
  Array list() const;
  /// Returns how many there were.
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

/// The answer with the JSON type of `fault.member` changed. False when the answer has no such
/// member: the fault then does not happen.
bool change_type(const Fault& fault, Response& answer);

/// So many bytes, the same for the same seed.
std::string random_bytes(std::uint64_t seed, std::size_t count);

}  // namespace zqpool::service
