#pragma once

#include <string>
#include <vector>

void get_iscsi_initiator_name(std::vector<std::string>& to);

struct FC_Info {
  void init() {}
  void get_port_wwn(std::vector<std::string>& to);
};
