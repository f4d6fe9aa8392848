#pragma once

#include "cli/command/command_line.h"

namespace zqpool::cli {

// Each adds one noun with its verbs.
void add_completion(Command_Line& commands);
void add_config(Command_Line& commands);
void add_device(Command_Line& commands);
void add_fs(Command_Line& commands);
void add_image(Command_Line& commands);
void add_lab(Command_Line& commands);
void add_lun(Command_Line& commands);
void add_metadata(Command_Line& commands);
void add_module(Command_Line& commands);
void add_nfs(Command_Line& commands);
void add_pool(Command_Line& commands);
void add_snapshot(Command_Line& commands);
void add_space(Command_Line& commands);
void add_uri(Command_Line& commands);

}  // namespace zqpool::cli
