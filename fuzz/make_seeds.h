#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Fuzz {

/// Writes the seeds of one target, each a file named for what it shows.
class SeedFolder {
 public:
  SeedFolder(const std::filesystem::path& root, std::string_view target);
  void Add(std::string_view name, std::string_view bytes) const;

 private:
  std::filesystem::path folder_;
};

/// A signed, digested or enveloped message in DER with its outer containers of indefinite length and its
/// content in segments, one inside another.
std::string ToSegments(std::string_view der);

/// The targets of plain text and of encodings.
void MakeTextSeeds(const std::filesystem::path& root);
/// The targets of certificates, keys and messages.
void MakeSecuritySeeds(const std::filesystem::path& root);
/// The targets that drive a client.
void MakeClientSeeds(const std::filesystem::path& root);
/// The targets of the C interface.
void MakeCSeeds(const std::filesystem::path& root);
/// The targets of the test environment.
void MakeStandSeeds(const std::filesystem::path& root);

}  // namespace Fuzz
