#pragma once

#include <string>

#include "tests/support/scripted_server.h"

namespace zqpool::test {

/// What the peer sent, and how the connection ended.
struct Raw_Reply {
  std::string bytes;
  bool reset = false;      ///< ended by RST instead of in order
  bool timed_out = false;  ///< nothing further for the time allowed
};

/// Opens a plain connection, sends `bytes`, and reads until its end, or until at least `awaited`
/// bytes came and then nothing for `patience`.
Raw_Reply raw_exchange(const Endpoint& to, const std::string& bytes,
                       std::chrono::milliseconds patience = max_wait, std::size_t awaited = 0);

}  // namespace zqpool::test
