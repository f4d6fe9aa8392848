#include <curl/curl.h>

#include <array>
#include <memory>
#include <mutex>
#include <stdexcept>

#include "bench/http/clients.h"
#include "bench/http/record.h"

namespace zqpool::bench {
namespace {

constexpr long time_limit_ms = 10000;
constexpr long max_response = 256L << 20;

struct Free {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  void operator()(char* text) const { curl_free(text); }
};
using Handle = std::unique_ptr<CURL, Free>;
using Header_List = std::unique_ptr<curl_slist, Free>;

void initialise() {
  static const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT);
  if (code != CURLE_OK) throw std::runtime_error("libcurl does not start");
}

std::size_t append(char* data, std::size_t size, std::size_t count, void* text) {
  static_cast<std::string*>(text)->append(data, size * count);
  return size * count;
}

Header_List make_headers(const Target& target) {
  curl_slist* list = curl_slist_append(nullptr, ("X-Access-Key: " + target.access_key).c_str());
  return Header_List(curl_slist_append(list, "Accept: application/json"));
}

void set_up(CURL* handle, const Target& target, const curl_slist* headers) {
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, &append);
  curl_easy_setopt(handle, CURLOPT_CAINFO, target.ca_file.c_str());
  curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, time_limit_ms);
  curl_easy_setopt(handle, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(max_response));
  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_PROXY, "");
}

bool perform(CURL* handle, const Target& target) {
  const std::unique_ptr<char, Free> value(curl_easy_escape(
      handle, target.device_url.data(), static_cast<int>(target.device_url.size())));
  const std::string url = std::string(target.ssl() ? "https://" : "http://") + target.host + ":" +
                          std::to_string(target.port) +
                          target.request_path.substr(0, target.request_path.find('=') + 1) +
                          value.get();
  std::string body;
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
  long status = 0;
  if (curl_easy_perform(handle) != CURLE_OK ||
      curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status) != CURLE_OK || status != 200) {
    return false;
  }
  rapidjson::Document row;
  return take_only_row(body.data(), body.size(), target.device_uuid, row);
}

/// The TLS sessions, shared by several handles.
class Share {
 public:
  Share() : share_(curl_share_init()) {
    curl_share_setopt(share_, CURLSHOPT_LOCKFUNC, &Share::lock);
    curl_share_setopt(share_, CURLSHOPT_UNLOCKFUNC, &Share::unlock);
    curl_share_setopt(share_, CURLSHOPT_USERDATA, this);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_SSL_SESSION);
  }
  ~Share() { curl_share_cleanup(share_); }
  Share(const Share&) = delete;
  Share& operator=(const Share&) = delete;
  CURLSH* get() const { return share_; }

 private:
  static void lock(CURL*, curl_lock_data data, curl_lock_access, void* self) {
    static_cast<Share*>(self)->mutexes_[data].lock();
  }
  static void unlock(CURL*, curl_lock_data data, void* self) {
    static_cast<Share*>(self)->mutexes_[data].unlock();
  }

  CURLSH* share_;
  std::array<std::mutex, CURL_LOCK_DATA_LAST> mutexes_;
};

/// One thread's handle and what it refers to.
struct Kept {
  std::shared_ptr<Share> share;
  Header_List headers;
  Handle handle;
};

}  // namespace

Make_Call curl_naive(const Target& target) {
  initialise();
  return [target] {
    return [target] {
      const Header_List headers = make_headers(target);
      const Handle handle(curl_easy_init());
      set_up(handle.get(), target, headers.get());
      return perform(handle.get(), target);
    };
  };
}

Make_Call curl_tuned(const Target& target) {
  initialise();
  return [target, share = std::make_shared<Share>()]() -> Call {
    auto kept = std::make_shared<Kept>(Kept{share, make_headers(target), Handle(curl_easy_init())});
    CURL* const handle = kept->handle.get();
    set_up(handle, target, kept->headers.get());
    curl_easy_setopt(handle, CURLOPT_SHARE, share->get());
    curl_easy_setopt(handle, CURLOPT_FRESH_CONNECT, 1L);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, 4096L);
    return [kept, target] { return perform(kept->handle.get(), target); };
  };
}

}  // namespace zqpool::bench
