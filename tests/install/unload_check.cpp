// A process that is not linked with the client or its foundation. On a new thread it loads the caller, which
// loads and unloads the library; then it unloads the caller and checks that none of our libraries is loaded.
// Heap memory that any of them still owned is then unreachable, so that a leak checker finds it at the end of
// the process.
//
//   unload_check CALLER LIBRARY [--leak]     with --leak, the caller is unloaded without freeing some memory
#include <array>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <string_view>
#include <thread>

#include "tests/install/unload_caller.h"

namespace {

constexpr int kRounds = 4;
constexpr std::array<std::string_view, 4> kOurs = {"/libcryptcli", "/liborusec", "/liborugui",
                                                   "/libunload_caller"};

int FindOurs(dl_phdr_info* info, std::size_t, void* found) {
  for (const std::string_view name : kOurs) {
    if (std::string_view(info->dlpi_name).find(name) == std::string_view::npos) continue;
    *static_cast<std::string_view*>(found) = name;
    return 1;
  }
  return 0;
}

bool Fail(const char* what, const char* reason) {
  std::fprintf(stderr, "unload_check: %s: %s\n", what, reason);
  return false;
}

bool Run(const char* caller, const char* library, bool leak) {
  void* const handle = ::dlopen(caller, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return Fail("load", ::dlerror());
  const auto call = reinterpret_cast<LoadCallAndUnloadFunction>(::dlsym(handle, kCallName));
  if (call == nullptr) return Fail("find", ::dlerror());
  const char* reason = nullptr;
  // The foundation has thread-local objects, which keep it loaded until the thread ends.
  std::thread([&] { reason = call(library, leak); }).join();
  if (reason != nullptr) return Fail("call", reason);
  if (::dlclose(handle) != 0) return Fail("unload", ::dlerror());
  std::string_view left;
  return ::dl_iterate_phdr(FindOurs, &left) == 0 || Fail("left behind", left.data());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  const bool leak = argc > 3 && std::strcmp(argv[3], "--leak") == 0;
  for (int round = 0; round < kRounds; ++round) {
    if (!Run(argv[1], argv[2], leak)) return 1;
  }
  std::puts("loaded, called and unloaded");
  return 0;
}
