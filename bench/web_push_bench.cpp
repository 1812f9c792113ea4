// What an encrypted push costs the kit on the connector's thread: decrypting one message (ECDH
// with the sender's key, HKDF, AES-128-GCM, the padding), for a push of the size the demo sends
// and for one near the 4 KiB a push service carries, each message sealed by the sandbox to fresh
// sender keys as an application server does. For reference, the JSON reading that follows it,
// and the key generation a first registration does once.
//
//   web_push_bench [messages per size, default 2000]
//
// Medians of single calls, microseconds.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "linux/web_push_crypto.hpp"
#include "orvanta_sandbox/web_push.hpp"
#include "push/remote_push_message.hpp"

namespace {

using Clock = std::chrono::steady_clock;

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0.0 : values[values.size() / 2];
}

double micros(Clock::duration duration) {
  return std::chrono::duration<double, std::micro>(duration).count();
}

std::string pushOfSize(std::size_t size) {
  std::string push = R"({"aps":{"alert":{"title":"Flash sale","body":"Two hours only"}},)"
                     R"("data":{"id":"p-1","pad":")";
  push.append(size > push.size() + 4 ? size - push.size() - 4 : 0, 'x');
  return push + "\"}}";
}

}  // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::max(1, std::atoi(argv[1])) : 2000;
  auto keys = orvanta::linux_platform::WebPushKeys::generate().value();
  std::printf("web push, %d messages per size, medians:\n", count);
  for (const std::size_t size : {700U, 4000U}) {
    const std::string push = pushOfSize(size);
    std::vector<std::string> messages;
    for (int i = 0; i < count; ++i) {
      messages.push_back(
          orvanta::sandbox::webpush::encrypt(push, keys.publicKey(), keys.authSecret()).value());
    }
    std::vector<double> decrypt;
    std::vector<double> read;
    for (const auto& message : messages) {
      const auto start = Clock::now();
      const auto opened = keys.decrypt(message);
      const auto decrypted = Clock::now();
      const auto userInfo = orvanta::remotePushUserInfo(*opened.plaintext);
      const auto done = Clock::now();
      if (!userInfo) {
        std::fprintf(stderr, "web_push_bench: a message did not read back\n");
        return 1;
      }
      decrypt.push_back(micros(decrypted - start));
      read.push_back(micros(done - decrypted));
    }
    std::printf(
        "  decryption of a %zu-byte push (%zu-byte message): %.1f us per message; "
        "reading its JSON after: %.1f us\n",
        push.size(), messages.front().size(), median(decrypt), median(read));
  }
  std::vector<double> generate;
  for (int i = 0; i < std::min(count, 200); ++i) {
    const auto start = Clock::now();
    keys = orvanta::linux_platform::WebPushKeys::generate().value();
    generate.push_back(micros(Clock::now() - start));
  }
  std::printf("  key generation (once per registration): %.1f us\n", median(generate));
  return 0;
}
