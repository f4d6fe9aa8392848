#include "service/catalog/statfs.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <limits>
#include <string>
#include <system_error>

#include "service/api/paths.h"
#include "service/api/request_fields.h"

namespace zqpool::service {

namespace {

std::int64_t count_of(std::uint64_t number) {
  constexpr auto max = std::numeric_limits<std::int64_t>::max();
  return number > static_cast<std::uint64_t>(max) ? max : static_cast<std::int64_t>(number);
}

std::int64_t bytes_of(std::uint64_t blocks, std::uint64_t block_size) {
  std::uint64_t bytes = 0;
  return __builtin_mul_overflow(blocks, block_size, &bytes)
             ? std::numeric_limits<std::int64_t>::max()
             : count_of(bytes);
}

Response statfs(Connection& db, Parsed_Request& request) {
  Query_Fields& query = request.query;
  const std::string uri = tidy_path(query.needed_text("uri"));
  if (uri != "/zq/data") throw Request_Error(404, "there is no data root '" + uri + "'");
  struct statvfs figures {};
  if (::statvfs(db.database().getFilename().c_str(), &figures) != 0) {
    throw std::system_error(errno, std::generic_category(), "statvfs");
  }
  const std::int64_t size = bytes_of(figures.f_blocks, figures.f_frsize);
  const std::int64_t free = bytes_of(figures.f_bfree, figures.f_frsize);
  return json_response(Object{{"uri", uri},
                              {"size", size},
                              {"used", size - free},
                              {"free", free},
                              {"available", bytes_of(figures.f_bavail, figures.f_frsize)},
                              {"block_size", count_of(figures.f_frsize)},
                              {"files", count_of(figures.f_files)},
                              {"files_free", count_of(figures.f_ffree)},
                              {"read_only", (figures.f_flag & ST_RDONLY) != 0}});
}

}  // namespace

void add_storage_server(Router& router) {
  router.add(Method::get, "/zq/r/file_uri/statfs", Access::read, statfs);
}

}  // namespace zqpool::service
