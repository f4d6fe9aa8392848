#include "cli/nouns/nouns.h"
#include "cli/support/process.h"

int main(int argc, char** argv) {
  using namespace zqpool::cli;
  prepare_process();
  Command_Line commands;
  add_pool(commands);
  add_device(commands);
  add_metadata(commands);
  add_lun(commands);
  add_snapshot(commands);
  add_fs(commands);
  add_image(commands);
  add_nfs(commands);
  add_space(commands);
  add_uri(commands);
  add_module(commands);
  add_config(commands);
  add_completion(commands);
  add_lab(commands);
  return commands.run(argc, argv);
}
