#pragma once

struct WebSocket_Options {
  static const WebSocket_Options* instance() {
    static const WebSocket_Options only;
    return &only;
  }
  const char* host() const { return "backup.example"; }
  int port() const { return 9000; }
  bool ssl() const { return true; }
};
