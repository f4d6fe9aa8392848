#include "service/options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstdio>
#include <iostream>
#include <thread>

#include "platform/text/host_port.h"

namespace zqpool::service {

namespace {

constexpr int usage_exit = 2;

/// "127.0.0.1:8480", "[::1]:8480". Throws CLI::ValidationError.
Listen_Address read_address(const std::string& option, const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon != std::string::npos) {
    const std::string_view host = std::string_view(text).substr(0, colon);
    const std::string_view address = text::without_brackets(host);
    // Without brackets, the port of an IPv6 address is ambiguous.
    const bool ambiguous = address == host && host.find(':') != std::string_view::npos;
    unsigned short port = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
    if (error == std::errc() && stop == end && !address.empty() && !ambiguous) {
      return {std::string(address), port};
    }
  }
  throw CLI::ValidationError(option, "'" + text + "' is not ADDRESS:PORT");
}

std::chrono::milliseconds milliseconds(double seconds) {
  return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

}  // namespace

std::optional<Options> read_options(int argc, char** argv, int& exit_code) {
  Options options;
  Limits& limits = options.server.limits;
  std::vector<std::string> plain;
  std::vector<std::string> tls;
  double idle = 0.001 * static_cast<double>(limits.idle.count());
  double request = 0.001 * static_cast<double>(limits.request.count());
  double answer = 0.001 * static_cast<double>(limits.answer.count());
  double nfs_delay = 0.001 * static_cast<double>(options.nfs_delay.count());
  double stop = 0.001 * static_cast<double>(limits.stop.count());
  options.server.threads = std::max(4U, std::thread::hardware_concurrency());

  CLI::App app("The reference storage and management service of zqpool.", "zqpoold");
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  app.set_version_flag("--version", "zqpoold " ZQPOOL_VERSION);
  app.add_option("--listen", plain,
                 "Serve HTTP at this address (default without --tls-listen: 127.0.0.1:8480)")
      ->type_name("ADDRESS:PORT")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option("--tls-listen", tls, "Serve HTTPS at this address")
      ->type_name("ADDRESS:PORT")
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_option("--certificate", options.server.certificate_file, "Certificate chain for HTTPS")
      ->type_name("PEM");
  app.add_option("--private-key", options.server.key_file, "Private key of the certificate")
      ->type_name("PEM");
  app.add_option("--state", options.state_file, "Database with the state; created if missing")
      ->type_name("FILE");
  app.add_option("--scenario", options.scenario_file, "Scenario to load into a new state")
      ->type_name("FILE");
  app.add_flag("--reload-scenario", options.reload_scenario,
               "Load the scenario into an existing state too; its content is lost");
  app.add_option("--access-key-file", options.access_key_file,
                 "File with the key that requests must carry")
      ->type_name("FILE");
  app.add_flag("--no-access-key", options.no_access_key, "Accept every client");
  app.add_option("--s3-secret-file", options.s3_secret_file,
                 "File with the secret, shared with the hosts, that encrypts the keys of S3 pools")
      ->type_name("FILE");
  app.add_option("--access-log", options.access_log, "One line per request; - is standard output")
      ->type_name("FILE")
      ->capture_default_str();
  app.add_option("--ready-file", options.ready_file,
                 "Write the ready line here; removed at the end")
      ->type_name("FILE");
  app.add_flag("--lab", options.lab,
               "Also serve /zq/lab/: scenarios, scripted faults, guests' writes");
  app.add_option("--nfs-delay", nfs_delay, "How long an NFS record stays pending")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 3600.0))
      ->capture_default_str();
  app.add_option("--make-certificate", options.make_certificate,
                 "Write certificate.pem and key.pem for localhost there, then exit")
      ->type_name("DIRECTORY");
  app.add_option("--threads", options.server.threads, "Threads that run requests")
      ->type_name("NUMBER")
      ->check(CLI::Range(1, 256))
      ->capture_default_str();
  app.add_option("--max-connections", limits.connections,
                 "Connections open at once; more wait to be accepted")
      ->type_name("NUMBER")
      ->check(CLI::Range(1, 100000))
      ->capture_default_str();
  app.add_option("--max-header", limits.header_bytes, "Size limit of request line and headers")
      ->type_name("BYTES")
      ->check(CLI::Range(256, 1 << 20))
      ->capture_default_str();
  app.add_option("--max-body", limits.body_bytes, "Size limit of a request's body")
      ->type_name("BYTES")
      ->check(CLI::Range(0, 1 << 30))
      ->capture_default_str();
  const CLI::Range any_time(0.001, 86400.0);
  app.add_option("--idle-timeout", idle, "How long a connection may be idle")
      ->type_name("SECONDS")
      ->check(any_time)
      ->capture_default_str();
  app.add_option("--request-timeout", request,
                 "Deadline for a handshake, for headers, and for a body (and 1 s more per 64 KiB)")
      ->type_name("SECONDS")
      ->check(any_time)
      ->capture_default_str();
  app.add_option("--answer-timeout", answer,
                 "Deadline for sending a response (and 1 s more per 64 KiB)")
      ->type_name("SECONDS")
      ->check(any_time)
      ->capture_default_str();
  app.add_option("--stop-timeout", stop, "Deadline for running requests at shutdown")
      ->type_name("SECONDS")
      ->check(any_time)
      ->capture_default_str();

  try {
    app.parse(argc, argv);
    for (const std::string& text : plain) {
      options.server.plain.push_back(read_address("--listen", text));
    }
    for (const std::string& text : tls) {
      options.server.tls.push_back(read_address("--tls-listen", text));
    }
    if (options.make_certificate.empty()) {
      if (options.state_file.empty()) throw CLI::RequiredError("--state");
      if (options.access_key_file.empty() == !options.no_access_key) {
        throw CLI::ValidationError(
            "give --access-key-file FILE, or --no-access-key to accept "
            "every client");
      }
      if (!tls.empty() &&
          (options.server.certificate_file.empty() || options.server.key_file.empty())) {
        throw CLI::ValidationError("--tls-listen needs --certificate and --private-key");
      }
      if (options.reload_scenario && options.scenario_file.empty()) {
        throw CLI::ValidationError("--reload-scenario needs --scenario");
      }
    }
  } catch (const CLI::ParseError& error) {
    const bool asked = error.get_exit_code() == 0;
    app.exit(error, std::cout, std::cerr);
    exit_code = asked ? 0 : usage_exit;
    return std::nullopt;
  }
  if (plain.empty() && tls.empty()) options.server.plain.push_back({"127.0.0.1", 8480});
  limits.idle = milliseconds(idle);
  limits.request = milliseconds(request);
  limits.answer = milliseconds(answer);
  limits.stop = milliseconds(stop);
  options.nfs_delay = milliseconds(nfs_delay);
  return options;
}

}  // namespace zqpool::service
