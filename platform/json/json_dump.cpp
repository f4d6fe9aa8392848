#include "platform/json/json_dump.h"

#include "platform/json/detail/text_writer.h"

using json_spirit::detail::write_text;

JSON_Dump::JSON_Dump(const json_spirit::Value& value, bool pretty) {
  write_text(value, {pretty, true}, text_);
}

JSON_Dump::JSON_Dump(const json_spirit::Object& object, bool pretty) {
  write_text(object, {pretty, true}, text_);
}

JSON_Dump::JSON_Dump(const json_spirit::Array& array, bool pretty) {
  write_text(array, {pretty, true}, text_);
}
