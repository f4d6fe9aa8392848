#include "service/api/router.h"

#include <stdexcept>

namespace zqpool::service {

void Router::add(Method method, const std::string& path, Access access, Handler handler) {
  if (!paths_[path].emplace(method, Route{access, std::move(handler)}).second) {
    throw std::logic_error(path + " has two handlers for one method");
  }
}

const Router::Route* Router::find(Method method, const std::string& path) const {
  const auto it = paths_.find(path);
  if (it == paths_.end()) return nullptr;
  const auto route = it->second.find(method == Method::head ? Method::get : method);
  return route == it->second.end() ? nullptr : &route->second;
}

std::string Router::allowed(const std::string& path) const {
  const auto it = paths_.find(path);
  if (it == paths_.end()) return "";
  std::string out;
  for (const auto& [method, route] : it->second) {
    out += method_name(method);
    out += method == Method::get ? ", HEAD, " : ", ";
  }
  return out + "OPTIONS";
}

std::map<std::string, std::vector<std::string>> Router::methods() const {
  std::map<std::string, std::vector<std::string>> out;
  for (const auto& [path, routes] : paths_) {
    for (const auto& [method, route] : routes)
      out[path].emplace_back(method_name(method));
  }
  return out;
}

}  // namespace zqpool::service
