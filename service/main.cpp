#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/crypto/s3_key.h"
#include "service/app/access_key.h"
#include "service/app/dispatcher.h"
#include "service/assemble.h"
#include "service/http/access_log.h"
#include "service/http/certificate.h"
#include "service/http/server.h"
#include "service/lab/lab.h"
#include "service/options.h"
#include "service/store/database.h"

namespace {

using namespace zqpool::service;

/// The ready file: complete as soon as it exists; removed at the end of the scope.
class Ready_File {
 public:
  Ready_File(std::string file, const std::string& line) : file_(std::move(file)) {
    if (file_.empty()) return;
    const std::string unfinished = file_ + ".new";
    std::ofstream out(unfinished, std::ios::trunc);
    out << line << '\n';
    out.close();
    if (!out || std::rename(unfinished.c_str(), file_.c_str()) != 0) {
      throw std::runtime_error("cannot write '" + file_ + "': " + std::strerror(errno));
    }
  }
  ~Ready_File() {
    if (!file_.empty()) ::unlink(file_.c_str());
  }
  Ready_File(const Ready_File&) = delete;
  Ready_File& operator=(const Ready_File&) = delete;

 private:
  std::string file_;
};

/// Replaces the database's content with the scenario file.
void load_scenario(Connection& db, const Scenario& scenario, const std::string& file) {
  try {
    scenario.load(db, read_scenario(file), true);
  } catch (const Request_Error& error) {
    throw std::runtime_error("scenario '" + file + "': " + error.what());
  }
}

/// Reloads the scenario into an existing database if wanted, else says that it is not loaded.
void handle_existing_state(Database& database, const Scenario& scenario, const Options& options) {
  if (options.scenario_file.empty() || database.is_new()) return;
  if (!options.reload_scenario) {
    std::fprintf(stderr,
                 "zqpoold: state '%s' exists and is kept; the scenario is not loaded "
                 "(--reload-scenario loads it)\n",
                 options.state_file.c_str());
    return;
  }
  Transaction transaction = database.begin(Access::write);
  load_scenario(transaction.db(), scenario, options.scenario_file);
  transaction.commit();
}

void serve(const Options& options) {
  // Other users must not read the state, nor the files that SQLite makes beside it.
  ::umask(077);
  std::optional<Access_Key> key;
  if (options.no_access_key) {
    std::fputs("zqpoold: WARNING: no access key is required; every client is accepted\n", stderr);
  } else {
    key = Access_Key(read_secret(options.access_key_file, "access key"));
  }
  if (!options.s3_secret_file.empty()) {
    set_s3_key_secret(read_secret(options.s3_secret_file, "S3 secret"));
  }
  Resources resources = assemble(options.nfs_delay);
  Database database(options.state_file, [&](Connection& db) {
    if (options.scenario_file.empty()) return;
    load_scenario(db, resources.scenario, options.scenario_file);
  });
  handle_existing_state(database, resources.scenario, options);
  Dispatcher dispatcher(database, resources.router, key);
  if (options.lab) add_lab(resources, dispatcher);
  Access_Log log(options.access_log);
  Server server(dispatcher, log, options.server);

  std::string line = "zqpoold ready";
  for (const std::string& url : server.urls())
    line += ' ' + url;
  const Ready_File ready(options.ready_file, line);
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
  server.run();
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  int exit_code = 0;
  try {
    const std::optional<Options> options = read_options(argc, argv, exit_code);
    if (!options) return exit_code;
    if (!options->make_certificate.empty()) {
      make_certificate(options->make_certificate);
      return 0;
    }
    serve(*options);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zqpoold: %s\n", error.what());
    return 1;
  }
}
