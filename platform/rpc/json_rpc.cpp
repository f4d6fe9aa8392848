#include "platform/rpc/json_rpc.h"

#include "platform/host/uuid.h"

std::string JSON_RPC_Id_Generator::get() const {
  std::string id;
  uuid_string(id, false);
  return id;
}
