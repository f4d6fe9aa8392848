#pragma once

#include <cstddef>
#include <cstring>

// Tell the kind of a storage URL by its prefix. Case matters, blanks are not trimmed, and a null
// URL is of no kind.

namespace zqpool::detail {

struct Url_Prefix {
  const char* text;
  std::size_t compared;  ///< how many bytes of `text` to compare
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

/// An object store of the S3 family, hybrid backup repositories included.
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
      // 6 and not 7 on purpose: peers also write "scss:/".
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
