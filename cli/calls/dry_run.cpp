#include "cli/calls/dry_run.h"

#include <utility>
#include <vector>

#include "cli/support/printable.h"
#include "cli/support/redact.h"

namespace zqpool::cli {

namespace {

thread_local Dry_Run* current = nullptr;

constexpr const char* end_of_line = "\r\n";

/// The parts of a request. Always well-formed: our transport wrote it.
struct Parts {
  std::string method, target, version;
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
};

Parts parse_request(const std::string& request) {
  Parts parts;
  std::size_t begin = 0;
  const auto next = [&](const std::string& stop) {
    const std::size_t end = request.find(stop, begin);
    std::string text = request.substr(begin, end - begin);
    begin = end == std::string::npos ? request.size() : end + stop.size();
    return text;
  };
  parts.method = next(" ");
  parts.target = next(" ");
  parts.version = next(end_of_line);
  for (std::string line = next(end_of_line); !line.empty(); line = next(end_of_line)) {
    const std::size_t colon = line.find(": ");
    const std::string name = line.substr(0, colon);
    std::string value = colon == std::string::npos ? "" : line.substr(colon + 2);
    if (name == "X-Access-Key") value = "(hidden)";
    parts.headers.emplace_back(name, std::move(value));
  }
  parts.body = request.substr(begin);
  // The body may be a scenario, which holds keys.
  json_spirit::Value body;
  if (json_spirit::read(parts.body, body) && body.type() == json_spirit::obj_type) {
    hide_keys(body.get_obj());
    parts.body = json_spirit::write(body);
  }
  return parts;
}

}  // namespace

Dry_Run::Dry_Run(Effect effect) : effect_(effect) {
  current = this;
}

Dry_Run::~Dry_Run() {
  current = nullptr;
}

bool Dry_Run::may_send(std::string_view request) {
  if (current == nullptr) return true;
  const bool reads = request.substr(0, 4) == "GET ";
  if (current->effect_ == Effect::changes && reads) return true;
  // Once a request was held back, none after it is sent.
  if (!current->request_) current->request_ = std::string(request);
  return false;
}

std::string shown_request(const std::string& request) {
  const Parts parts = parse_request(request);
  std::string text = printable(parts.method + ' ' + parts.target + ' ' + parts.version) + '\n';
  for (const auto& [name, value] : parts.headers)
    text.append(printable(name)).append(": ").append(printable(value)).append("\n");
  if (!parts.body.empty()) text += '\n' + printable(parts.body) + '\n';
  return text;
}

Object request_record(const std::string& request) {
  Parts parts = parse_request(request);
  Object headers;
  for (auto& [name, value] : parts.headers)
    headers[name] = std::move(value);
  json_spirit::Value body;
  if (!parts.body.empty()) json_spirit::read(parts.body, body);
  return {{"method", std::move(parts.method)},
          {"target", std::move(parts.target)},
          {"headers", std::move(headers)},
          {"body", std::move(body)}};
}

}  // namespace zqpool::cli
