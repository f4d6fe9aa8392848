#include "utils/pool/detail/snapshot_chain.h"

namespace zqpool::detail {
namespace {

struct Sizes {
  std::uint64_t excl = 0;
  std::uint64_t rfer = 0;
};

bool read_sizes(const Source_Location& location, const Object& snapshot, Sizes& sizes) {
  Member_Reader read(snapshot);
  return (read("excl_size", sizes.excl) && read("rfer_size", sizes.rfer)) ||
         ZQ_LOG_AT(location, LM_ERROR, "Failed to calculate snapshot size: %s\n", read.error());
}

/// For "%llu".
unsigned long long number(std::uint64_t size) {
  return size;
}

}  // namespace

bool added_size(const Source_Location& location, const Object& current, const Object& previous,
                std::uint64_t& size) {
  Sizes before;
  Sizes now;
  if (!previous.empty() && !read_sizes(location, previous, before)) return false;
  if (!read_sizes(location, current, now)) return false;
  if (before.rfer == 0 && before.excl == 0) {
    size = now.rfer + now.excl;
    return true;
  }
  // On purpose: the sum wraps around and is then read as a signed number, and only the
  // predecessor's "excl_size" is added.
  size = now.rfer - before.rfer + before.excl;
  if (static_cast<std::int64_t>(size) < 0) {
    // clang-format off
    ZQ_LOG_AT(location, LM_WARNING,
              "Calculate snapshot size is less than 0, previous snapshot excl size = %llu, rfer size = %llu, current snapshot excl size = %llu, rfer size = %llu.\n",
              number(before.excl), number(before.rfer), number(now.excl), number(now.rfer));
    // clang-format on
    size = 0;
  }
  return true;
}

}  // namespace zqpool::detail
