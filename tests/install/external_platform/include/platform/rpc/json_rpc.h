#pragma once

#include <string>

struct JSON_RPC_Request {
  const char* version = "2.0";
};

struct JSON_RPC_Id_Generator {
  std::string get();
};
