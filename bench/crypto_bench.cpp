// The cost of decrypting an S3 key, compared with calling OpenSSL directly.
//
// "bare" is the shortest correct code with a ready key: decode Base64, AES-256-GCM with a cipher
// fetched once, check the tag. "naive" fetches the cipher in each call, as most programs do. Both
// lack what the library adds: strict Base64, the process's key, wiping, a clean error queue.

#include <openssl/evp.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench/medians.h"
#include "platform/crypto/s3_key.h"

namespace {

constexpr const char* url = "s3s://objects.example:9000/bucket1";
constexpr std::size_t sizes[] = {40, 4096};

unsigned char* bytes_of(std::string& text) {
  return reinterpret_cast<unsigned char*>(text.data());
}

struct Free_Context {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

bool bare_decrypt(const EVP_CIPHER* cipher, const unsigned char* key, std::string& text) {
  std::string message(text.size() / 4 * 3, '\0');
  if (EVP_DecodeBlock(bytes_of(message), bytes_of(text), static_cast<int>(text.size())) < 0) {
    return false;
  }
  while (text.back() == '=') {
    text.pop_back();
    message.pop_back();
  }
  const std::unique_ptr<EVP_CIPHER_CTX, Free_Context> context(EVP_CIPHER_CTX_new());
  const int size = static_cast<int>(message.size()) - 12 - 16;
  std::string clear(static_cast<std::size_t>(size), '\0');
  int done = 0;
  if (EVP_DecryptInit_ex(context.get(), cipher, nullptr, key, bytes_of(message)) != 1 ||
      EVP_DecryptUpdate(context.get(), nullptr, &done, reinterpret_cast<const unsigned char*>(url),
                        static_cast<int>(std::char_traits<char>::length(url))) != 1 ||
      EVP_DecryptUpdate(context.get(), bytes_of(clear), &done, bytes_of(message) + 12, size) != 1 ||
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, 16,
                          bytes_of(message) + 12 + size) != 1 ||
      EVP_DecryptFinal_ex(context.get(), bytes_of(clear), &done) != 1) {
    return false;
  }
  text = std::move(clear);
  return true;
}

std::string bare_seal(const EVP_CIPHER* cipher, const unsigned char* key, std::string clear) {
  const std::unique_ptr<EVP_CIPHER_CTX, Free_Context> context(EVP_CIPHER_CTX_new());
  std::string message(12 + clear.size() + 16, 'n');
  int done = 0;
  const int size = static_cast<int>(clear.size());
  if (EVP_EncryptInit_ex(context.get(), cipher, nullptr, key, bytes_of(message)) != 1 ||
      EVP_EncryptUpdate(context.get(), nullptr, &done, reinterpret_cast<const unsigned char*>(url),
                        static_cast<int>(std::char_traits<char>::length(url))) != 1 ||
      EVP_EncryptUpdate(context.get(), bytes_of(message) + 12, &done, bytes_of(clear), size) != 1 ||
      EVP_EncryptFinal_ex(context.get(), bytes_of(message), &done) != 1 ||
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, 16,
                          bytes_of(message) + 12 + size) != 1) {
    std::abort();
  }
  std::string text((message.size() + 2) / 3 * 4, '\0');
  EVP_EncodeBlock(bytes_of(text), bytes_of(message), static_cast<int>(message.size()));
  return text;
}

template <typename Decrypt>
void run(benchmark::State& state, const std::string& sealed, std::size_t size, Decrypt decrypt) {
  for (auto _ : state) {
    std::string text = sealed;
    if (!decrypt(text) || text.size() != size) state.SkipWithError("refused");
    benchmark::DoNotOptimize(text.data());
  }
}

}  // namespace

int main(int argc, char** argv) {
  zqpool::bench::initialize_for_medians(argc, argv);
  set_s3_key_secret("of the benchmark");
  const EVP_CIPHER* const fetched = EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr);
  const unsigned char key[32] = {};

  for (const std::size_t size : sizes) {
    const std::string clear(size, 'k');
    std::string sealed = clear;
    if (!encrypt_s3_key(url, sealed)) std::abort();
    const std::string bare_sealed = bare_seal(fetched, key, clear);
    const std::string suffix = "/" + std::to_string(size);
    const auto add = [&](const char* name, const std::string& text, auto decrypt) {
      benchmark::RegisterBenchmark((name + suffix).c_str(), [=](benchmark::State& state) {
        run(state, text, size, decrypt);
      });
    };
    add("decrypt_s3_key", sealed, [](std::string& text) { return decrypt_s3_key(url, text); });
    add("bare", bare_sealed,
        [fetched, &key](std::string& text) { return bare_decrypt(fetched, key, text); });
    add("naive", bare_sealed,
        [&key](std::string& text) { return bare_decrypt(EVP_aes_256_gcm(), key, text); });
  }
  zqpool::bench::Median_Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  std::printf("\nMedians, CPU time, with a copy of the sealed text.\n");
  std::printf("%6s %17s %10s %7s %20s %7s\n", "bytes", "decrypt_s3_key us", "bare us", "ratio",
              "naive us", "ratio");
  for (const std::size_t size : sizes) {
    const auto time = [&](const char* name) {
      return reporter.nanoseconds[name + ("/" + std::to_string(size))] / 1e3;
    };
    const double ours = time("decrypt_s3_key");
    std::printf("%6zu %17.3f %10.3f %6.2fx %20.3f %6.2fx\n", size, ours, time("bare"),
                ours / time("bare"), time("naive"), ours / time("naive"));
  }
  return 0;
}
