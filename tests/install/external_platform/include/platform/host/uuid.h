#pragma once

#include <string>

/// Numbered, so that one knows which comes next: "00000000-0000-4000-8000-000000000001".
void uuid_string(std::string& to, bool capitals);
