#include "utils/pool/detail/snapshot_chain.h"

namespace zqpool::detail {
namespace {

struct Sizes {
  std::uint64_t excl = 0;
  std::uint64_t rfer = 0;
};

Sizes read_sizes(const Object& snapshot) {
  Sizes sizes;
  const Const_Object_Throw_Extractor extract(snapshot);
  extract("excl_size", sizes.excl, true);
  extract("rfer_size", sizes.rfer, true);
  return sizes;
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
  try {
    if (!previous.empty()) before = read_sizes(previous);
    now = read_sizes(current);
  } catch (const std::exception& error) {
    return ZQ_LOG_AT(location, LM_ERROR, "Failed to calculate snapshot size: %s\n", error.what());
  }
  if (before.rfer == 0 && before.excl == 0) {
    size = now.rfer + now.excl;
    return true;
  }
  // On purpose: the sum wraps around and is then read as a signed number, and of the two own shares
  // ("excl_size") only the predecessor's is added.
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
