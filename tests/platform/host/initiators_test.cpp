#include "platform/host/initiators.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temp_directory.h"

namespace {

using testing::ElementsAre;

/// A host with an "/etc" and a "/sys" of its own.
class Initiators_Test : public testing::Test {
 public:
  Initiators_Test() { set_host_root(root_.path()); }
  ~Initiators_Test() override { set_host_root(""); }

 protected:
  void iscsi(const std::string& content) { write("etc/iscsi", "initiatorname.iscsi", content); }
  void port(const std::string& host, const std::string& port_name) {
    write("sys/class/fc_host/" + host, "port_name", port_name);
  }
  std::string make_folder(const std::string& folder) {
    std::filesystem::create_directories(root_.path(folder));
    return root_.path(folder);
  }
  std::string fc_folder() { return make_folder("sys/class/fc_host"); }

  static std::vector<std::string> found_names() {
    std::vector<std::string> names;
    const bool any = get_iscsi_initiator_name(names);
    EXPECT_EQ(any, !names.empty());
    return names;
  }
  static std::vector<std::string> found_wwns() {
    std::vector<std::string> wwns;
    FC_Info info;
    const bool any = info.init();
    EXPECT_EQ(info.get_port_wwn(wwns), any);
    EXPECT_EQ(any, !wwns.empty());
    return wwns;
  }

 private:
  void write(const std::string& folder, const std::string& name, const std::string& content) {
    make_folder(folder);
    root_.write(folder + "/" + name, content);
  }

  zqpool::test::Temp_Directory root_;
};

TEST_F(Initiators_Test, iscsi_name_of_a_file_as_the_system_writes_it) {
  iscsi(
      "## DO NOT EDIT OR REMOVE THIS FILE!\n"
      "## InitiatorName=iqn.of-a-comment\n"
      "InitiatorName=iqn.1993-08.org.debian:01:8b3d1a\n");
  EXPECT_THAT(found_names(), ElementsAre("iqn.1993-08.org.debian:01:8b3d1a"));
}

TEST_F(Initiators_Test, blanks_comments_and_line_ends_are_no_part_of_a_name) {
  iscsi(
      "\n"
      "  \t InitiatorName \t = \t iqn.one \t \n"
      "InitiatorName=iqn.two# no part of it\n"
      "InitiatorName=iqn.three # nor that\r\n"
      "InitiatorName=iqn.four and what follows\n"
      "InitiatorName=eui.02004567A425678D");
  EXPECT_THAT(found_names(),
              ElementsAre("iqn.one", "iqn.two", "iqn.three", "iqn.four", "eui.02004567A425678D"));
}

TEST_F(Initiators_Test, other_lines_name_nobody) {
  iscsi(
      "GenerateName=yes\n"
      "InitiatorAlias=iqn.alias\n"
      "initiatorname=iqn.lower-case\n"
      "InitiatorName\n"
      "InitiatorName=\n"
      "InitiatorName=  \n"
      "InitiatorName=# none\n"
      "InitiatorNames=iqn.other-key\n"
      "=iqn.no-key\n");
  EXPECT_THAT(found_names(), ElementsAre());
}

TEST_F(Initiators_Test, only_the_first_sign_of_equality_parts) {
  iscsi("InitiatorName=iqn.2026-11.org:a=b\n");
  EXPECT_THAT(found_names(), ElementsAre("iqn.2026-11.org:a=b"));
}

TEST_F(Initiators_Test, without_a_readable_file_there_is_no_iscsi_name) {
  EXPECT_THAT(found_names(), ElementsAre());
  iscsi("");
  EXPECT_THAT(found_names(), ElementsAre());
}

TEST_F(Initiators_Test, folder_in_the_place_of_the_file_names_nobody) {
  make_folder("etc/iscsi/initiatorname.iscsi");
  EXPECT_THAT(found_names(), ElementsAre());
}

TEST_F(Initiators_Test, iscsi_names_are_appended) {
  iscsi("InitiatorName=iqn.one\nInitiatorName=iqn.two\n");
  std::vector<std::string> names = {"before"};
  EXPECT_TRUE(get_iscsi_initiator_name(names));
  EXPECT_THAT(names, ElementsAre("before", "iqn.one", "iqn.two"));
  iscsi("# nobody any more\n");
  EXPECT_FALSE(get_iscsi_initiator_name(names));
  EXPECT_THAT(names, ElementsAre("before", "iqn.one", "iqn.two"));
}

TEST_F(Initiators_Test, fibre_channel_ports_in_the_order_of_their_numbers) {
  port("host10", "0x100000109b1c2d10\n");
  port("host2", "0x100000109b1c2d02\n");
  port("host0", "0x100000109b1c2d00");
  EXPECT_THAT(found_wwns(),
              ElementsAre("0x100000109b1c2d00", "0x100000109b1c2d02", "0x100000109b1c2d10"));
}

TEST_F(Initiators_Test, fibre_channel_hosts_are_links_as_a_rule) {
  port("../../devices/pci/host4", " 0x21000024ff000001 \n");
  std::filesystem::create_symlink("../../devices/pci/host4", fc_folder() + "/host4");
  EXPECT_THAT(found_wwns(), ElementsAre("0x21000024ff000001"));
}

TEST_F(Initiators_Test, fibre_channel_ports_that_tell_no_name_are_left_out) {
  port("host1", "");
  port("host2", "\n0x100000109b1c2d02\n");
  port("host3", "0x0\n");
  port("host4", "0xffffffffffffffff\n");
  port("host5", "0x100000109b1c2d05\n");
  make_folder("sys/class/fc_host/host6");
  make_folder("sys/class/fc_host/host7/port_name");
  std::filesystem::create_symlink("nowhere", fc_folder() + "/host8");
  EXPECT_THAT(found_wwns(), ElementsAre("0x100000109b1c2d05"));
}

TEST_F(Initiators_Test, without_fibre_channel_there_is_no_port) {
  EXPECT_THAT(found_wwns(), ElementsAre());
  fc_folder();
  EXPECT_THAT(found_wwns(), ElementsAre());
  std::vector<std::string> wwns;
  EXPECT_FALSE(FC_Info().get_port_wwn(wwns)) << "not initialised";
}

TEST_F(Initiators_Test, fibre_channel_ports_are_appended_and_read_anew) {
  port("host1", "0x1\n");
  FC_Info info;
  EXPECT_TRUE(info.init());
  std::vector<std::string> wwns = {"before"};
  EXPECT_TRUE(info.get_port_wwn(wwns));
  port("host1", "0x2\n");
  EXPECT_TRUE(info.init());
  EXPECT_TRUE(info.get_port_wwn(wwns));
  EXPECT_THAT(wwns, ElementsAre("before", "0x1", "0x2"));
  std::filesystem::remove_all(fc_folder());
  EXPECT_FALSE(info.init());
  EXPECT_FALSE(info.get_port_wwn(wwns));
  EXPECT_THAT(wwns, ElementsAre("before", "0x1", "0x2"));
}

}  // namespace
