// Seeds of the targets of the C interface. The choices are in the order in which each target reads them, so
// whoever changes what a target reads changes its seeds here.
#include <cstdint>

#include "fuzz/make_seeds.h"
#include "fuzz/support/input.h"
#include "fuzz/support/world.h"

namespace Fuzz {
namespace {

void MakeOptionSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "c_options");
  constexpr std::uint32_t kSetters = 8;
  const auto service = [](std::uint8_t transport) {
    return InputWriter().Byte(transport).Below(0, kSetters).Text("https://crypt.example/api");
  };
  folder.Add("callback", service(0).Get());
  folder.Add("built-in", service(1).Get());
  folder.Add("header",
             service(0).Below(4, kSetters).Text("Authorization").Text("Bearer 7").Text("room").Get());
  folder.Add("broken-header", service(0).Below(4, kSetters).Text("Name").Text("a\r\nb: c").Get());
  folder.Add("proxy", service(1).Below(3, kSetters).Text("http://proxy:3128").Get());
  folder.Add("ca-file", service(1).Below(1, kSetters).Text("ca.pem").Get());
  folder.Add("certificate", service(1).Below(2, kSetters).Text("c").Text("k").Byte(1).Byte(1).Get());
  folder.Add("key-alone", service(1).Below(2, kSetters).Text("c").Text("k").Byte(0).Byte(1).Get());
  folder.Add("times", service(0).Below(6, kSetters).Below(100, 65536).Below(200, 65536).Get());
  folder.Add("log", service(0).Below(7, kSetters).Byte(3).Byte(1).Text("room").Get());
  folder.Add("not-utf8", InputWriter().Byte(0).Below(0, kSetters).Text("http://h\xFFst/").Get());
}

void MakePerformSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "c_perform");
  constexpr std::uint32_t kOperations = 9;
  for (std::uint32_t i = 0; i < kOperations; ++i) {
    const std::string name = std::to_string(i);
    folder.Add("good-" + name, InputWriter().Below(i, kOperations).Below(0, 4).Below(0, 4).Get());
    folder.Add("changed-" + name,
               InputWriter().Below(i, kOperations).Below(0, 4).Below(1, 4).Byte(1).Byte(2).Get());
    folder.Add("refused-" + name,
               InputWriter().Below(i, kOperations).Below(0, 4).Below(0, 4).Byte(0).Byte(0).Byte(11).Get());
  }
  folder.Add("prefix", InputWriter().Below(0, kOperations).Below(2, 4).Below(0, 4).Get());
  folder.Add("unknown", InputWriter().Below(0, kOperations).Below(3, 4).Text("Nothing").Get());
  folder.Add("text", InputWriter()
                         .Below(5, kOperations)
                         .Below(0, 4)
                         .Below(3, 4)
                         .Text(R"({"keyserver":["u"],"group":"g","key":"k"})")
                         .Get());
}

void MakeReportSeeds(const std::filesystem::path& root) {
  const SeedFolder folder(root, "c_report");
  constexpr std::uint32_t kSources = 7;
  const World& world = World::Get();
  const auto contents = static_cast<std::uint32_t>(world.contents.size());
  for (std::uint32_t policy = 0; policy < 4; ++policy)
    folder.Add("policy-" + std::to_string(policy), InputWriter().Below(0, kSources).Below(policy, 4).Get());
  for (std::uint32_t i = 0; i < contents; ++i) {
    const std::string& name = world.contents[i].name;
    folder.Add("message-" + name, InputWriter().Below(2, kSources).Below(i, contents).Get());
    folder.Add("envelope-" + name, InputWriter().Below(4, kSources).Below(i, contents).Below(3, 4).Get());
  }
  const auto look = InputWriter().Below(0, kSources).Below(0, 4).Below(7, 8);
  folder.Add("look", look.Get());
  // From 6 on a treatment changes the response (support/hostile_http.cpp).
  for (std::uint8_t treatment = 6; treatment < 16; ++treatment) {
    InputWriter writer = look;
    folder.Add("look-" + std::to_string(treatment), writer.Byte(treatment).Text("text").Get());
  }
  folder.Add("text", InputWriter().Below(6, kSources).Text("no message").Get());
}

}  // namespace

void MakeCSeeds(const std::filesystem::path& root) {
  MakeOptionSeeds(root);
  MakePerformSeeds(root);
  MakeReportSeeds(root);
}

}  // namespace Fuzz
