// Inputs of the targets that use a client: the choices at the start of each, then how each response is
// treated. Whatever an input leaves out is harmless, so each of these has exactly one fault.
#include <cstdint>

#include "fuzz/make_seeds.h"
#include "fuzz/support/input.h"
#include "fuzz/support/responses.h"
#include "fuzz/support/world.h"

namespace Fuzz {
namespace {

// As in support/hostile_http.cpp, where the treatments up to 5 leave a response as usual.
constexpr std::uint8_t kTreatments = 16;
constexpr std::uint32_t kExchanges = 16;

// The first exchanges as usual, then one with a treatment.
InputWriter& TreatOne(InputWriter& writer, std::uint32_t exchange, std::uint8_t treatment) {
  for (std::uint32_t i = 0; i < exchange; ++i) writer.Byte(0);
  return writer.Byte(treatment);
}

std::string Name(std::string_view type, std::uint32_t first, std::uint32_t second) {
  return std::string(type) + "-" + std::to_string(first) + "-" + std::to_string(second);
}

// Each treatment of each exchange of an operation that begins with `start`.
void AddTreatments(const SeedFolder& folder, std::string_view type, const InputWriter& start,
                   std::uint32_t exchanges) {
  for (std::uint32_t exchange = 0; exchange < exchanges; ++exchange) {
    for (std::uint8_t treatment = 6; treatment < kTreatments; ++treatment) {
      InputWriter writer = start;
      TreatOne(writer, exchange, treatment).Text("text").Byte(static_cast<std::uint8_t>(exchange));
      folder.Add(Name(type, exchange, treatment), writer.Get());
    }
  }
}

// Each unusual response to one exchange.
void AddVariants(const SeedFolder& folder, std::string_view type, const InputWriter& start,
                 std::uint32_t exchange, const char* step) {
  constexpr std::uint8_t kVariant = 6;
  const std::uint32_t count = CountVariants(step);
  for (std::uint32_t i = 0; i < count; ++i) {
    InputWriter writer = start;
    TreatOne(writer, exchange, kVariant).Below(i, count);
    folder.Add(Name(std::string(type) + "-" + step, exchange, i), writer.Get());
  }
}

void MakeEncryptSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "client_encrypt");
  InputWriter start;
  start.Below(0, 8).Below(0, 4);
  folder.Add("good", start.Get());
  folder.Add("in-place", InputWriter().Below(1, 8).Below(2, 4).Byte(7).Get());
  folder.Add("text", InputWriter().Below(0, 8).Below(1, 4).Text("some content").Get());
  AddTreatments(folder, "treated", start, kExchanges);
  AddVariants(folder, "unusual", start, 0, "key");
}

// The order of the choices is that in which MakeSource of client_decrypt_fuzzer.cpp reads them.
void MakeDecryptSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "client_decrypt");
  constexpr std::uint32_t kSources = 9;
  const World& world = World::Get();
  const auto envelopes = static_cast<std::uint32_t>(world.envelopes.size());
  const auto contents = static_cast<std::uint32_t>(world.contents.size());
  InputWriter start;
  start.Below(0, kSources);
  folder.Add("good", start.Get());
  for (std::uint32_t i = 0; i < envelopes; ++i)
    folder.Add("envelope-" + world.envelopes[i].name,
               InputWriter().Below(1, kSources).Below(i, envelopes).Get());
  for (std::uint32_t i = 0; i < contents; ++i) {
    InputWriter plainKey;
    plainKey.Below(3, kSources).Below(i, contents).Byte(6).Below(0, CountVariants("key"));
    folder.Add("plain-key-" + world.contents[i].name, plainKey.Get());
    folder.Add("content-" + world.contents[i].name,
               InputWriter().Below(3, kSources).Below(i, contents).Get());
    folder.Add(
        "changed-" + world.contents[i].name,
        InputWriter().Below(4, kSources).Below(i, contents).Below(0, 4).Below(1, 7).Below(900, 65536).Get());
  }
  for (std::uint32_t type = 0; type < 8; ++type) {
    for (const std::uint32_t source : {5U, 8U}) {
      InputWriter writer;
      writer.Below(source, kSources).Below(4, source == 5 ? contents : envelopes).Below(type, 12);
      folder.Add(Name("element", source, type), writer.Byte(9).Byte(9).Byte(0).Byte(0).Byte(3).Get());
    }
  }
  for (const char* name : {"genuine", "foreign", "digested"}) {
    const std::string bytes = ToSegments(world.Find(world.contents, name));
    folder.Add(std::string("segments-") + name, InputWriter().Below(6, kSources).Text(bytes).Get());
  }
  folder.Add("segments-file",
             InputWriter().Below(7, kSources).Text(ToSegments(world.Find(world.envelopes, "genuine"))).Get());
  folder.Add("raw-content", InputWriter().Below(6, kSources).Text("no message").Get());
  folder.Add("raw-file", InputWriter().Below(7, kSources).Text("no message").Get());
  AddTreatments(folder, "treated", start, 10);
  AddVariants(folder, "unusual", start, 0, "key");
}

// Operations by their index in kOperations of client_operation_fuzzer.cpp; the two after them are an
// operation with the prefix "Crypt", and that prefix before any string.
void MakeOperationSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "client_operation");
  constexpr std::uint32_t kOperations = 9;
  constexpr std::uint32_t kGetAuditLog = 2;
  constexpr std::uint32_t kDecrypt = 8;
  for (std::uint32_t operation = 0; operation < kOperations; ++operation) {
    InputWriter start;
    start.Below(operation, kOperations + 2).Below(0, 4);
    folder.Add(Name("good", operation, 0), start.Get());
    if (operation == kGetAuditLog || operation == kDecrypt)
      AddTreatments(folder, "operation-" + std::to_string(operation), start, 3);
  }
  folder.Add("prefix", InputWriter().Below(kOperations, kOperations + 2).Below(3, kOperations).Get());
  folder.Add("unknown", InputWriter().Below(kOperations + 1, kOperations + 2).Text("Nothing").Get());
  folder.Add(
      "arguments",
      InputWriter().Below(7, kOperations + 2).Below(3, 4).Text(R"({"room":1,"keyserver":[1,"x"]})").Get());
}

// A byte of 15 is the rare case in audit_log_fuzzer.cpp.
void MakeAuditLogSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "audit_log");
  folder.Add("three",
             InputWriter().Text("group").Text("h;e\n1;a\n").Text("h;e\r\n2;b\r\n").Text("h;e\n3;c").Get());
  folder.Add("empty", InputWriter().Text("").Text("").Text("h\n").Text("h\n1\n").Get());
  folder.Add("headers", InputWriter().Text("../g").Text("h").Text("h").Text("\n\n\r\r\n").Get());
  // The probe, the token, then the content type, the code and the status of the first server's log.
  for (std::uint8_t type = 0; type < 8; ++type) {
    InputWriter writer;
    writer.Text("g").Byte(0).Byte(0).Byte(15).Byte(type).Byte(0);
    folder.Add("type-" + std::to_string(type), writer.Text("h\n1\n").Get());
  }
  folder.Add("code", InputWriter().Text("g").Byte(0).Byte(0).Byte(0).Byte(15).Text("601").Text("h\n").Get());
  folder.Add("status", InputWriter().Text("g").Byte(0).Byte(0).Byte(0).Byte(0).Byte(15).Text("h\n").Get());
  folder.Add("down", InputWriter().Text("g").Byte(15).Text("h\n").Get());
  folder.Add("no-token", InputWriter().Text("g").Byte(0).Byte(15).Get());
}

}  // namespace

void MakeClientSeeds(const std::filesystem::path& root) {
  MakeEncryptSeeds(root);
  MakeDecryptSeeds(root);
  MakeOperationSeeds(root);
  MakeAuditLogSeeds(root);
}

}  // namespace Fuzz
