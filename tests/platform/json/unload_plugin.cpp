#include "platform/json/json_spirit.h"

// A minimal plug-in that uses the library.
extern "C" __attribute__((visibility("default"))) int plugin_reads(const char* text) {
  json_spirit::Value value;
  return json_spirit::read(text, value) && json_spirit::write(value) == text ? 1 : 0;
}
