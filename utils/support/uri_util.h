#pragma once

#include <cstddef>
#include <cstring>

// Which family a storage URL belongs to, by its first bytes. Letters are compared as they stand and
// nothing is trimmed; a null URL belongs to none.

namespace zqpool::detail {

struct Url_Prefix {
  const char* text;
  std::size_t compared;  ///< bytes of `text` that count
};

template <std::size_t Count>
bool begins_with_any(const char* url, const Url_Prefix (&prefixes)[Count]) noexcept {
  if (url == nullptr) return false;
  for (const Url_Prefix& prefix : prefixes) {
    if (std::strncmp(url, prefix.text, prefix.compared) == 0) return true;
  }
  return false;
}

}  // namespace zqpool::detail

/// A deduplication storage: "dedup://", "dedups://", "ws://" or "wss://".
inline bool is_dedup_uri(const char* url) noexcept {
  static constexpr zqpool::detail::Url_Prefix prefixes[] = {
      {"dedup://", 8}, {"dedups://", 9}, {"ws://", 5}, {"wss://", 6}};
  return zqpool::detail::begins_with_any(url, prefixes);
}

/// An object store of the S3 family, which includes the "hbr" pair.
inline bool is_s3_uri(const char* url) noexcept {
  static constexpr zqpool::detail::Url_Prefix prefixes[] = {
      {"s3://", 5},
      {"s3s://", 6},
      {"s3v4://", 7},
      {"s3v4s://", 8},
      {"oss://", 6},
      {"osss://", 7},
      {"obs://", 6},
      {"obss://", 7},
      {"kss://", 6},
      {"ksss://", 7},
      {"ufile://", 8},
      {"ufiles://", 9},
      {"cos://", 6},
      {"coss://", 7},
      {"scs://", 6},
      // Not 7: peers write "scss:/" followed by anything, and that is to count.
      {"scss://", 6},
      {"blob://", 7},
      {"blobs://", 8},
      {"hbr://", 6},
      {"hbrs://", 7},
  };
  return zqpool::detail::begins_with_any(url, prefixes);
}

/// A hybrid backup repository: "hbr://" or "hbrs://".
inline bool is_hbr_url(const char* url) noexcept {
  static constexpr zqpool::detail::Url_Prefix prefixes[] = {{"hbr://", 6}, {"hbrs://", 7}};
  return zqpool::detail::begins_with_any(url, prefixes);
}

/// A LAN-free (SCSI) storage: "lanfree://" or "lanfrees://".
inline bool is_lanfree_uri(const char* url) noexcept {
  static constexpr zqpool::detail::Url_Prefix prefixes[] = {{"lanfree://", 10},
                                                            {"lanfrees://", 11}};
  return zqpool::detail::begins_with_any(url, prefixes);
}
