#pragma once

#include <string>
#include <string_view>

namespace zqpool::text {

/// "host:80"; an IPv6 address gets brackets: "[::1]:80".
std::string host_port(std::string_view host, unsigned short port);

/// A host as it stands in a URL: an IPv6 address in brackets, anything else as it is.
std::string bracketed_host(std::string_view host);

/// `text` without the brackets around it, if there are any.
std::string_view without_brackets(std::string_view text) noexcept;

}  // namespace zqpool::text
