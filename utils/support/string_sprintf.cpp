#include "utils/support/string_sprintf.h"

#include <ace/OS_NS_stdio.h>

#include <cstddef>

namespace {

constexpr std::size_t min_room = 128;

void cut_back(std::string& out, std::size_t start) {
  if (start == 0) {
    std::string().swap(out);  // clear() would keep the memory
  } else {
    out.resize(start);
  }
}

ssize_t vsprintf_at(std::string& out, std::size_t start, const char* format, std::va_list args) {
  for (bool guessed = false;;) {
    std::size_t room = out.size() - start;
    if (room < min_room) {
      room = min_room;
      out.resize(start + room);
    }
    std::va_list pass;
    va_copy(pass, args);
    const int result = ACE_OS::vsnprintf(&out[start], room, format, pass);
    va_end(pass);
    if (result < 0) {
      cut_back(out, start);
      return result;
    }

    std::size_t length = static_cast<std::size_t>(result);
    if (length < room) {
      out.resize(start + length);
      return static_cast<ssize_t>(out.size());
    }
    if (length == room + 1) {
      // ACE returns "room plus one" also when the C library cannot format the text. A text that
      // really is that long fits on the next pass; if the same comes again, it is an error.
      if (guessed) {
        cut_back(out, start);
        return -1;
      }
      guessed = true;
      // On purpose: where the C library does not tell the length, this is ACE's guess, and growing
      // by one would take too many passes.
      length += min_room;
    } else {
      guessed = false;
    }
    out.resize(start + length + 1);
  }
}

}  // namespace

ssize_t string_vsprintf(std::string& out, const char* format, std::va_list args, bool append) {
  const std::size_t start = append ? out.size() : 0;
  try {
    return vsprintf_at(out, start, format, args);
  } catch (...) {
    cut_back(out, start);
    throw;
  }
}

std::string string_sprintf(const char* format, ...) {
  std::string out;
  std::va_list args;
  va_start(args, format);
  string_vsprintf(out, format, args, false);
  va_end(args);
  return out;
}

ssize_t string_sprintf(std::string& out, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  const ssize_t length = string_vsprintf(out, format, args, false);
  va_end(args);
  return length;
}

ssize_t string_sprintf_append(std::string& out, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  const ssize_t length = string_vsprintf(out, format, args, true);
  va_end(args);
  return length;
}
