// A module of a third party that uses the client for a while: it loads the library with dlopen, calls it
// through the names that it exports, and unloads it. Arguments and results belong to the foundation and stay
// valid.
#include "tests/install/unload_caller.h"

#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <string>
#include <string_view>

#include "client/cryptcli.h"
#include "foundation/module.h"
#include "foundation/trace.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::BaseInitializer;
using OruGuiBase::KVMap;
using OruGuiBase::Val;
using OruKalvix::ICryptClientHttp;

namespace {

// CryptClient::PerformOperation as the platform's C++ ABI writes it; the type is the declaration's own.
constexpr const char* kPerformOperation =
    "_ZN9OruKalvix11CryptClient16PerformOperationEPNS_16ICryptClientHttpERKN10OruGuiBase7AnsiStrES6_S6_"
    "RKNS3_5KVMapERNS3_3ValERS4_";
using PerformOperationFunction = decltype(&OruKalvix::CryptClient::PerformOperation);

constexpr std::int32_t kFailed = static_cast<std::int32_t>(0x80004005U);
constexpr std::int32_t kUnknownName = static_cast<std::int32_t>(0x80020003U);

bool Contains(const AnsiStr& text, const char* part) {
  return text.View().find(part) != std::string_view::npos;
}

// A crypt service and one key server, without a network.
class CannedHttp final : public ICryptClientHttp {
 public:
  void* QueryInterface(const char*) override { return nullptr; }
  std::uint32_t AddRef() override { return ++references; }
  std::uint32_t Release() override { return --references; }
  std::int32_t SendRequest(const AnsiStr&, const AnsiStr& url, const KVMap&, const AnsiStr& body,
                           const OruKalvix::HttpOptions&, OruKalvix::HttpResponse& response) override {
    response.status = 200;
    response.headers.Set("Date", "Sun, 06 Nov 1994 08:49:37 GMT");
    if (Contains(url, "/authztoken/")) {
      response.body = R"({"authztoken":"token"})";
    } else if (Contains(body, "exportWrappedKeyRequest")) {
      response.body =
          R"({"payload":{"type":"exportWrappedKeyResponse","encodedPrivateKey":"the plain key"}})";
    } else if (Contains(body, "generateWrappedKeyRequest")) {
      response.body =
          R"({"payload":{"type":"generateWrappedKeyResponse","encodedX509Certificate":"bm8gY2VydGlmaWNhdGU="}})";
    }
    return 0;
  }

  std::uint32_t references = 1;
};

/// Records the traces of the library's loading and unloading, and whether they came in the order that a
/// module must keep.
class FrameWatch final : public OruGuiTrace::ITraceSink {
 public:
  FrameWatch() { OruGuiTrace::SetTraceSink(this, 1); }
  FrameWatch(const FrameWatch&) = delete;
  FrameWatch& operator=(const FrameWatch&) = delete;
  ~FrameWatch() { OruGuiTrace::SetTraceSink(nullptr, 0); }

  void OnTrace(std::uint32_t, std::uint32_t level, const char* source, std::uint32_t,
               const char* text) override {
    // The client traces its exchanges under a name of its own.
    if (level != 1 || std::string_view(source) == "cryptcli") return;
    const std::string event(text);
    const std::size_t colon = event.find(": ");
    events += (colon == std::string::npos ? event : event.substr(colon + 2)) + ";";
    orderHeld = orderHeld && BaseInitializer::GetCount() == kInitializers;
  }

  static constexpr unsigned int kInitializers = 2;
  std::string events;
  bool orderHeld = true;
};

std::string reason;
void* volatile kept = nullptr;

const char* Fail(const std::string& text) {
  reason = text;
  return reason.c_str();
}

KVMap Arguments() {
  OruGuiBase::Array<Val> servers;
  servers.Append(Val("https://key.example"));
  KVMap key;
  key.Set("id", "1");
  key.Set("data", "the wrapped key");
  OruGuiBase::Array<Val> keys;
  keys.Append(Val(key));
  KVMap arguments;
  arguments.Set("keyserver", Val(servers));
  arguments.Set("room", "room");
  arguments.Set("keys", Val(keys));
  return arguments;
}

// An operation that succeeds, one that fails in the security library, one without a transport, and an unknown
// one.
bool Call(PerformOperationFunction perform, Val& result, AnsiStr& error) {
  CannedHttp http;
  const KVMap arguments = Arguments();
  Val none;
  return perform(&http, "https://crypt.example", "", "CryptDecrypt", arguments, result, error) == 0 &&
         perform(&http, "https://crypt.example", "", "Encrypt", arguments, none, error) == kFailed &&
         Contains(error, "Could not decode") &&
         perform(nullptr, "https://crypt.example", "", "Decrypt", arguments, none, error) == kFailed &&
         perform(&http, "https://crypt.example", "", "Decipher", arguments, none, error) == kUnknownName &&
         http.references == 1;
}

const char* CheckFrame(const FrameWatch& watch) {
  if (watch.events != "Trace startup;context made;process attach;process detach;context ended;")
    return Fail("the library traced: " + watch.events);
  if (!watch.orderHeld)
    return Fail("the library traced this outside the init section or without the foundation");
  if (BaseInitializer::GetCount() != 0) return Fail("the library left an initializer of the foundation");
  return nullptr;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) const char* LoadCallAndUnload(const char* library,
                                                                                bool leak) {
  if (leak) kept = std::malloc(64);
  FrameWatch watch;
  void* const handle = ::dlopen(library, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return Fail(::dlerror());
  const auto perform = reinterpret_cast<PerformOperationFunction>(::dlsym(handle, kPerformOperation));
  if (perform == nullptr) return Fail(::dlerror());
  Val result;
  AnsiStr error;
  if (!Call(perform, result, error))
    return Fail(std::string("an operation ended otherwise: ") + error.GetText());
  if (::dlclose(handle) != 0) return Fail(::dlerror());
  if (::dlopen(library, RTLD_NOW | RTLD_NOLOAD) != nullptr)
    return Fail("the library is still loaded after dlclose");
  const KVMap plain = result.AsMap().Get("keys").AsArray()[0].AsMap();
  if (!(plain.Get("plain").AsString() == "the plain key")) return Fail("the result went with the library");
  return CheckFrame(watch);
}
