#pragma once

#include <string>
#include <utility>
#include <vector>

#include "cli/command/command_context.h"
#include "platform/http/http_message.h"
#include "platform/json/json_spirit.h"

namespace zqpool::cli {

/// The fields of a query string, not encoded yet.
using Query = std::vector<std::pair<const char*, std::string>>;

/// One exchange with the service, for what the library has no operation for. `body` may be null.
Outcome exchange(Command_Context& context, Effect effect, HTTP_Method method, const char* path,
                 const Query& query, const json_spirit::Value* body, json_spirit::Value& answer);

/// Reads the list at a path.
Outcome list_objects(Command_Context& context, const char* path, const Query& query, Array& list);

}  // namespace zqpool::cli
