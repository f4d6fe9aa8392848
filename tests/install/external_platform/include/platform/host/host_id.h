#pragma once

struct Host_ID {
  static const Host_ID* instance() {
    static const Host_ID only;
    return &only;
  }
  const char* c_str() const { return "host-a"; }
};
