#include "bench/http/record.h"

#include <utility>

namespace zqpool::bench {

bool take_only_row(const char* text, std::size_t size, const std::string& uuid,
                   rapidjson::Document& row) {
  rapidjson::Document answer;
  answer.Parse(text, size);
  if (answer.HasParseError() || !answer.IsObject()) return false;
  const auto rows = answer.FindMember("rows");
  if (rows == answer.MemberEnd() || !rows->value.IsArray() || rows->value.Size() != 1) return false;
  rapidjson::Value only;
  only.Swap(rows->value[0]);
  if (!only.IsObject()) return false;
  static_cast<rapidjson::Value&>(answer).Swap(only);
  row.Swap(answer);
  const auto found = row.FindMember("uuid");
  return found != row.MemberEnd() && found->value.IsString() && uuid == found->value.GetString();
}

}  // namespace zqpool::bench
