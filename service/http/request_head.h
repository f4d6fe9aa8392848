#pragma once

#include <boost/beast/core/error.hpp>
#include <boost/beast/core/string_type.hpp>
#include <boost/beast/http/fields.hpp>
#include <boost/beast/http/message.hpp>
#include <string>

#include "service/api/message.h"

namespace zqpool::service {

using Request_Header = boost::beast::http::request_header<>;

/// The request that a header describes, still without its body.
Request request_of(const Request_Header& header);

/// The X-Request-Id header, or a new identifier when it is missing or unsuitable.
std::string request_id_of(const Request_Header& header);

/// Why a well-formed header is answered with 400; "" if it is not.
std::string header_error(const Request_Header& header);

/// The status for a parser's error; 0 when the connection broke instead.
unsigned status_of(const boost::beast::error_code& error);

/// Whether a line ends in LF without CR.
bool has_bare_line_feed(boost::beast::string_view text);

}  // namespace zqpool::service
