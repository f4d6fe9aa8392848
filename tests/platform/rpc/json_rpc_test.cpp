#include "platform/rpc/json_rpc.h"

#include <gmock/gmock.h>

#include <set>
#include <string>

namespace {

TEST(JSON_RPC_Request, speaks_version_2) {
  EXPECT_EQ(JSON_RPC_Request().version, "2.0");
}

TEST(JSON_RPC_Id_Generator, each_identifier_is_a_new_uuid) {
  JSON_RPC_Id_Generator generator;
  std::set<std::string> seen;
  for (int i = 0; i < 100; ++i) {
    const std::string id = generator.get();
    EXPECT_THAT(id, testing::ContainsRegex(
                        "^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$"));
    seen.insert(id);
  }
  seen.insert(JSON_RPC_Id_Generator().get());
  EXPECT_EQ(seen.size(), 101U);
}

}  // namespace
