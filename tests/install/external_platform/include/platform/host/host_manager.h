#pragma once

struct Host_Manager {
  static const Host_Manager* instance() {
    static const Host_Manager only;
    return &only;
  }
  const char* access_key() const { return "key of host-a"; }
};
