#include "cli/output/render.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "cli/support/exit_code.h"

namespace zqpool::cli {
namespace {

Object object_of(const std::string& text) {
  json_spirit::Value value;
  std::string why;
  EXPECT_TRUE(json_spirit::read(text, value, why)) << why;
  return value.get_obj();
}

const char* const device = R"({"zone":"b","url":"file:///vault/d1","size":10737418240,
  "uuid":"d-1","label":"","owner":null,"online":true,"load":0.5,"attr":{"a.b":{"c":1},"none":{}},
  "tags":["x","y"],"nodes":[{"host":"n1","port":1},{"host":"備份","ip":"10.0.0.2"}],"empty":[]})";

TEST(Render, a_single_record_is_a_table_of_its_members) {
  EXPECT_EQ(render({{"d-1", object_of(device)}}, Output_Format::table, 0),
            "uuid        d-1\n"
            "url         file:///vault/d1\n"
            "size        10737418240 (10 GiB)\n"
            "attr.a.b.c  1\n"
            "attr.none   -\n"
            "empty       -\n"
            "label       -\n"
            "load        0.5\n"
            "online      true\n"
            "owner       -\n"
            "tags        x, y\n"
            "zone        b\n"
            "nodes\n"
            "  HOST  IP        PORT\n"
            "  n1    -         1\n"
            "  備份  10.0.0.2  -\n");
}

TEST(Render, several_records_are_a_line_each) {
  EXPECT_EQ(
      render({{"1",
               object_of(
                   R"({"name":"a","list":[1,{}],"big":18446744073709551615,"at":{"host":"n1"}})")},
              {"2", object_of(R"({"uuid":"u","name":"a longer name"})")}},
             Output_Format::table, 0),
      "UUID  NAME           AT.HOST  BIG                   LIST\n"
      "-     a              n1       18446744073709551615  1, {}\n"
      "u     a longer name  -        -                     -\n");
  EXPECT_EQ(render({}, Output_Format::table, 0), "");
}

TEST(Render, records_too_wide_for_the_terminal_are_shown_like_single_ones) {
  const std::vector<Record> records = {
      {"1", object_of(R"({"uuid":"u-1","at":[{"host":"n1","zone":"east"},{"host":"n2"}]})")},
      {"2", object_of(R"({"uuid":"u-2"})")}};
  const std::string rows =
      "UUID  AT\n"
      "u-1   {\"host\":\"n1\",\"zone\":\"east\"}, {\"host\":\"n2\"}\n"
      "u-2   -\n";
  EXPECT_EQ(render(records, Output_Format::table, 0), rows);
  EXPECT_EQ(render(records, Output_Format::table, 48), rows);
  EXPECT_EQ(render(records, Output_Format::table, 47),
            "uuid  u-1\n"
            "at\n"
            "  HOST  ZONE\n"
            "  n1    east\n"
            "  n2    -\n"
            "\n"
            "uuid  u-2\n");
  EXPECT_EQ(render(records, Output_Format::table, 8),
            "uuid  u-1\n"
            "at\n"
            "  host  n1\n"
            "  zone  east\n"
            "\n"
            "  host  n2\n"
            "\n"
            "uuid  u-2\n");
}

TEST(Render, sizes_up_to_64_bits_are_exact) {
  EXPECT_EQ(render({{"1", object_of(R"({"used":18446744073709551615,"free":-1,"size":"x"})")}},
                   Output_Format::table, 0),
            "size  x\nused  18446744073709551615 (15.99 EiB)\nfree  -1\n");
}

TEST(Render, a_service_cannot_forge_lines_or_move_the_cursor) {
  EXPECT_EQ(render({{"1", object_of(R"({"a\n\u001b[2J":"b\nname  c"})")}}, Output_Format::table, 0),
            "a\\x0a\\x1b[2J  b\\x0aname  c\n");
}

TEST(Render, json_is_one_document_a_line_as_the_library_gave_it) {
  EXPECT_EQ(render({{"1", object_of(R"({"b":1,"a":"\n"})")}, {"2", {}}}, Output_Format::json, 80),
            "{\"a\":\"\\n\",\"b\":1}\n{}\n");
}

std::string unescaped(const std::string& field) {
  const std::map<char, char> meanings = {
      {'\\', '\\'}, {'t', '\t'}, {'n', '\n'}, {'r', '\r'}, {'0', '\0'}};
  std::string out;
  for (std::size_t i = 0; i < field.size(); ++i)
    out += field[i] == '\\' ? meanings.at(field[++i]) : field[i];
  return out;
}

TEST(Render, tsv_escapes_reversibly) {
  std::string every_byte;
  for (int c = 0; c < 128; ++c)
    every_byte += static_cast<char>(c);
  every_byte += "ü備\U0001f4be";
  const std::string name = "file:///a\tb\nc\\";
  const std::string text = render({{name, {{every_byte, every_byte}}}}, Output_Format::tsv, 0);
  ASSERT_EQ(text.find('\n'), text.size() - 1);
  std::istringstream line(text.substr(0, text.size() - 1));
  std::string fields[3];
  for (std::string& field : fields)
    ASSERT_TRUE(std::getline(line, field, '\t'));
  EXPECT_EQ(unescaped(fields[0]), name);
  EXPECT_EQ(unescaped(fields[2]), every_byte);
  // Within a key, dots and backslashes are escaped once more.
  std::string key;
  for (const char c : every_byte)
    key += (c == '.' || c == '\\' ? "\\" : "") + std::string(1, c);
  EXPECT_EQ(unescaped(fields[1]), key);
}

TEST(Render, tsv_has_a_line_for_each_plain_value) {
  EXPECT_EQ(render({{"d-1", object_of(device)}}, Output_Format::tsv, 80),
            "d-1\tattr.a\\\\.b.c\t1\n"
            "d-1\tattr.none\t{}\n"
            "d-1\tempty\t[]\n"
            "d-1\tlabel\t\n"
            "d-1\tload\t0.5\n"
            "d-1\tnodes.0.host\tn1\n"
            "d-1\tnodes.0.port\t1\n"
            "d-1\tnodes.1.host\t備份\n"
            "d-1\tnodes.1.ip\t10.0.0.2\n"
            "d-1\tonline\ttrue\n"
            "d-1\towner\t\\N\n"
            "d-1\tsize\t10737418240\n"
            "d-1\ttags.0\tx\n"
            "d-1\ttags.1\ty\n"
            "d-1\turl\tfile:///vault/d1\n"
            "d-1\tuuid\td-1\n"
            "d-1\tzone\tb\n");
}

TEST(Render, formats_have_names) {
  EXPECT_EQ(parse_output_format("table"), Output_Format::table);
  EXPECT_EQ(parse_output_format("json"), Output_Format::json);
  EXPECT_EQ(parse_output_format("tsv"), Output_Format::tsv);
  EXPECT_THROW(parse_output_format("JSON"), Usage_Error);
  EXPECT_THROW(parse_output_format(""), Usage_Error);
}

}  // namespace
}  // namespace zqpool::cli
