#include "service/catalog/statfs.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "tests/service/fixtures/lab_service.h"

namespace zqpool::service {
namespace {

using json_spirit::Value;
using test::Lab_Service;

const std::string statfs_path = "/zq/r/file_uri/statfs";

TEST(Storage_Server, tells_the_figures_of_the_file_system_of_its_state) {
  Lab_Service lab;
  const Value answer = lab.good("GET", statfs_path + "?uri=%2fzq%2fdata");
  const Object& space = answer.get_obj();
  struct statvfs figures {};
  ASSERT_EQ(::statvfs(lab.database().file().c_str(), &figures), 0);
  EXPECT_EQ(space.at("uri"), Value("/zq/data"));
  EXPECT_EQ(space.at("block_size").get_uint64(), figures.f_frsize);
  EXPECT_EQ(space.at("size").get_uint64(), figures.f_blocks * figures.f_frsize);
  EXPECT_EQ(space.at("files").get_uint64(), figures.f_files);
  EXPECT_EQ(space.at("read_only").get_bool(), (figures.f_flag & ST_RDONLY) != 0);
  EXPECT_EQ(space.at("used").get_int64(),
            space.at("size").get_int64() - space.at("free").get_int64());
  EXPECT_LE(space.at("available").get_int64(), space.at("free").get_int64());
}

TEST(Storage_Server, tells_how_it_fills) {
  const test::Temp_Directory directory;
  const std::string disk = directory.path("disk");
  std::filesystem::create_directory(disk);
  // A mount of this process alone.
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=8m") != 0) {
    GTEST_SKIP() << "a disk of its own needs the right to mount: " << std::strerror(errno);
  }
  {
    Lab_Service lab("{}", disk + "/state");
    const auto free = [&] {
      const Value answer = lab.good("GET", statfs_path + "?uri=/zq/data");
      EXPECT_EQ(answer.get_obj().at("size"), Value(8 << 20));
      return answer.get_obj().at("free").get_int64();
    };
    const std::int64_t before = free();
    EXPECT_GT(before, 4 << 20);
    std::ofstream(disk + "/filler") << std::string(1 << 20, 'x');
    EXPECT_EQ(free(), before - (1 << 20));
  }
  EXPECT_EQ(::umount(disk.c_str()), 0);
}

TEST(Storage_Server, has_one_data_root) {
  Lab_Service lab;
  EXPECT_EQ(lab.good("GET", statfs_path + "?uri=/zq//data/").get_obj().at("uri"),
            Value("/zq/data"));
  EXPECT_EQ(lab.refusal("GET", statfs_path + "?uri=/zq/other"),
            "404 there is no data root '/zq/other'");
  EXPECT_EQ(lab.refusal("GET", statfs_path + "?uri="), "404 there is no data root ''");
  EXPECT_EQ(lab.refusal("GET", statfs_path), "400 query field 'uri' is missing");
  EXPECT_EQ(lab.refusal("GET", statfs_path + "?uri=/zq/data&x=1"),
            "400 query field 'x' is unknown");
}

}  // namespace
}  // namespace zqpool::service
