#include <cstdio>
#include <cstdlib>

#include "platform/json/json_dump.h"
#include "utils/pool/pool_metadata_manager.h"

int main(int argc, char** argv) {
  if (argc != 5) return std::fputs("usage: ten_lines HOST PORT ACCESS_KEY DEVICE_URL\n", stderr), 2;
  const auto port = static_cast<unsigned short>(std::atoi(argv[2]));
  Object device;
  if (!Pool_Metadata_Manager::get_device(argv[1], port, false, argv[3], argv[4], device)) return 1;
  std::puts(JSON_Dump(device, true).c_str());
}
