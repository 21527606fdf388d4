// An application that still uses the library while it ends: in destructors of its static and thread-local
// objects, in destructors of pthread keys, and in its trace sink. Started by ending_test; the argument names
// the way in which it ends.
//
//   ending_program WAY      exit code 0, and nothing on standard error, if the library worked to the end
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <string_view>
#include <thread>

#include "client/cryptcli.h"
#include "foundation/errorstate.h"
#include "foundation/file.h"
#include "foundation/trace.h"
#include "security/certificate.h"
#include "security/cmsmsg.h"

using OruGuiBase::AnsiStr;
using OruGuiBase::KVMap;
using OruGuiBase::Val;

namespace {

void Demand(bool held, const char* what) {
  if (held) return;
  std::fprintf(stderr, "ending_program: %s\n", what);
  std::_Exit(3);
}

/// Never destroyed, so that it gets what the library traces until the end of the process.
class Sink final : public OruGuiTrace::ITraceSink {
 public:
  void OnTrace(std::uint32_t, std::uint32_t, const char* source, std::uint32_t, const char* text) override {
    Demand(*source != '\0' && std::strlen(text) > 0, "an event without a source or a text");
    OruGuiBase::SetErrorMessage("the sink has a reason of its own, which nobody asks for");
    if (endsProcess) std::exit(0);
  }
  bool endsProcess = false;
};
constinit Sink sink;

// A message of our own can be read until the objects of the thread are destroyed, and reads "Unknown error"
// from then on. An errno value stays.
void FailWithAReason() {
  constexpr const char* kReason = "A reason that is long enough to lie in memory of its own";
  OruGuiBase::SetErrorMessage(kReason);
  Demand(OruGuiBase::GetLastError() == OruGuiBase::kTextError, "the code of a reason is gone");
  const AnsiStr text = OruGuiBase::GetSystemErrorText();
  Demand(text == kReason || text == "Unknown error", "another reason than the one given");
  Demand(!OruGuiBase::File("/nonexistent/file").Remove(/*mayBeMissing=*/false),
         "a file that is not there was removed");
  Demand(OruGuiBase::GetLastError() == ENOENT, "the code of a failed system call is gone");
  Demand(OruGuiBase::GetSystemErrorText() == std::strerror(ENOENT),
         "the text of a failed system call is gone");
}

void FailACommand() {
  Val result;
  AnsiStr error;
  KVMap arguments;
  arguments.Set("room", "room");
  Demand(OruKalvix::CryptClient::PerformOperation(nullptr, "https://crypt.example", "", "Encrypt", arguments,
                                                  result, error) == static_cast<std::int32_t>(0x80004005U),
         "a command without a transport did not fail");
  Demand(error == "Invalid key server URL", "a failed command has another reason");
}

void TraceInsideATrace() {
  const char* const outer = OruGuiTrace::InitTraceContext("%s", "a text of a trace, long enough to be alone");
  OruGuiTrace::TraceMsg(1, 4, "application", __LINE__, OruGuiTrace::InitTraceContext("inner %d", 1));
  OruGuiTrace::FreeTraceContext();
  Demand(std::string_view(outer) == "a text of a trace, long enough to be alone", "a trace lost its text");
  OruGuiTrace::FreeTraceContext();
}

// OpenSSL cleans up at exit, before static objects that are older than its first use are destroyed.
void LoadWhatCannotBeLoaded() {
  OruOssSec::CMSMsg message;
  Demand(!message.Load(AnsiStr("MIAGCSqGSIb3DQEHAqCAMIACAQExDTALBglghkgBZQMEAgM=")),
         "a cut message was loaded");
  OruOssSec::Certificate certificate;
  Demand(!certificate.Load("MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEA", OruOssSec::ASN1::Encoding::Text),
         "a cut certificate was loaded");
}

void UseLibrary() {
  FailWithAReason();
  LoadWhatCannotBeLoaded();
  FailACommand();
  TraceInsideATrace();
  OruGuiBase::SetErrorMessage("A reason that stays, in memory of its own");
}

/// Uses the library in its destructor, once it is armed.
class User {
 public:
  constexpr User() = default;
  User(const User&) = delete;
  User& operator=(const User&) = delete;
  ~User() {
    if (isArmed) UseLibrary();
  }
  bool isArmed = false;
};

User staticUser;
OruGuiBase::TempFile staticFile;

void Return() {}

void Exit() {
  std::exit(0);
}

void ExitInAThread() {
  std::thread([] {
    UseLibrary();
    std::exit(0);
  }).join();
}

// Leaves two traces open.
void ExitInTheSink() {
  sink.endsProcess = true;
  TraceInsideATrace();
}

void LeaveStatics() {
  static User later;
  staticUser.isArmed = later.isArmed = true;
}

// The older object is destroyed after the library's own objects of the thread, the younger one before.
void LeaveThreadLocals() {
  thread_local User older;
  older.isArmed = true;
  UseLibrary();
  thread_local User younger;
  younger.isArmed = true;
}

void LeaveThreadLocalsInThreads() {
  staticUser.isArmed = true;
  for (int i = 0; i < 3; ++i) std::thread(LeaveThreadLocals).join();
}

// Data of a pthread key is destroyed after every thread-local object.
void LeaveThreadData() {
  std::thread([] {
    pthread_key_t key = 0;
    Demand(pthread_key_create(&key, [](void*) { UseLibrary(); }) == 0, "no key");
    UseLibrary();
    Demand(pthread_setspecific(key, &sink) == 0, "no data for the key");
  }).join();
}

void LeaveTracesOpen() {
  std::thread([] {
    for (int i = 0; i < 3; ++i) OruGuiTrace::InitTraceContext("trace %d, which is never ended", i);
  }).join();
}

void LeaveATemporaryFile() {
  staticFile.Take(OruGuiBase::File(OruGuiBase::FileType::Temporary, "content.tmp", /*isPrivate=*/true));
  Demand(!staticFile.GetPath().IsEmpty(), "no temporary file");
}

struct Way {
  std::string_view name;
  void (*end)();
};
constexpr std::array kWays = {
    Way{"Return", Return},
    Way{"Exit", Exit},
    Way{"ExitInAThread", ExitInAThread},
    Way{"ExitInTheSink", ExitInTheSink},
    Way{"Statics", LeaveStatics},
    Way{"ThreadLocals", LeaveThreadLocals},
    Way{"Threads", LeaveThreadLocalsInThreads},
    Way{"ThreadData", LeaveThreadData},
    Way{"OpenTraces", LeaveTracesOpen},
    Way{"TemporaryFile", LeaveATemporaryFile},
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  for (const Way& way : kWays) {
    if (way.name != argv[1]) continue;
    OruGuiTrace::SetTraceSink(&sink, 1);
    // Objects of the main thread that must be older than the library's own come first.
    if (way.end != LeaveThreadLocals) UseLibrary();
    way.end();
    return 0;
  }
  return 2;
}
