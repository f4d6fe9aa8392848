#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/json/json_spirit.h"
#include "tests/support/temp_directory.h"
#include "tests/support/wire_row.h"
#include "utils/pool/image_pool_manager.h"
#include "utils/pool/scsi_target_manager.h"

// What the tests of the pool managers share. Every manager is one of pool "p1" with the access key
// "key".

namespace zqpool::test {

using Call = std::function<Outcome(const Endpoint&)>;

template <typename Manager>
Manager make_manager(const Endpoint& to);
template <>
inline SCSI_Target_Manager make_manager(const Endpoint& to) {
  return {to.host, to.port, to.ssl, "key", "p1", nullptr};
}
template <>
inline Image_Pool_Manager make_manager(const Endpoint& to) {
  return {to.host, to.port, to.ssl, "key", "p1"};
}

/// The source file that a manager's messages come from.
template <typename Manager>
const std::string source_of;
template <>
inline const std::string source_of<SCSI_Target_Manager> = "utils/pool/scsi_target_manager.cpp";
template <>
inline const std::string source_of<Image_Pool_Manager> = "utils/pool/image_pool_manager.cpp";

template <typename Manager>
Expected_Line error_of(const std::string& text) {
  return {"LM_ERROR", text, true, source_of<Manager>};
}
/// The message about an element that is no object.
template <typename Manager>
Expected_Line no_object() {
  const std::string& file = source_of<Manager>;
  return {"LM_EMERGENCY", "Unexpected error in " + file + ":{number}, i is not object!\n", true,
          file};
}

inline Expected_Line scsi_error(const std::string& text) {
  return error_of<SCSI_Target_Manager>(text);
}

/// Where this host's initiators come from.
enum class Initiators {
  given,          ///< passed to the manager's constructor: "i1" and "i2"
  iscsi,          ///< "iqn.found" in the host's files
  fibre_channel,  ///< "0xf1" and "0xf2" in the host's files
  both,
  none
};

/// Has `use` ask a SCSI pool on a host of that kind, whose identity is "h1".
Call on_pool(std::function<Outcome(SCSI_Target_Manager&)> use,
             Initiators initiators = Initiators::given);

/// The access list of such a host.
inline const std::string given_acls =
    R"([{"host_uuid":"h1","initiator":"i1"},{"host_uuid":"h1","initiator":"i2"}])";
inline const std::string iscsi_acls = R"([{"host_uuid":"h1","initiator":"iqn.found"}])";
inline const std::string fibre_channel_acls =
    R"([{"host_uuid":"h1","initiator":"0xf1"},{"host_uuid":"h1","initiator":"0xf2"}])";

/// The request for a pool's transport.
inline const std::string type_target = "/zq/r/pool?type=scsi&pool_id=p1";

/// What outputs hold before a call, to show whether it wrote them.
inline Object old_object() {
  return {{"old", true}};
}
inline Array old_array() {
  return {json_spirit::Value("old")};
}

/// The expected outcome of an operation.
struct Judgement {
  bool result = false;
  Object outputs;
  std::vector<std::string> messages;  ///< after the client's own line; "{any}" and the like hold
};
/// Judges by the body of the answer; null when the exchange failed.
using Judge = std::function<Judgement(const json_spirit::Value* body)>;

/// Runs an operation with each of any_answers() and compares the outcome. The client logs a failed
/// exchange in one line if `client_logs`.
void judge_any_answer(const Call& call, const std::string& good_answer, const Judge& judge,
                      bool client_logs = true);

/// The same for an operation whose first request gets the answer `first`.
void judge_any_second_answer(const Call& call, const std::string& first,
                             const std::string& good_answer, const Judge& judge);

/// The body when it is of that type, else null.
const Object* as_object(const json_spirit::Value* body);
const Array* as_array(const json_spirit::Value* body);
/// The one object that the body holds in an array and nothing else, else null.
const Object* only_object(const json_spirit::Value* body);

}  // namespace zqpool::test
