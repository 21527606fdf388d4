#pragma once

#include "tests/protection/services_fixture.h"

namespace FaultTest {

/// Passes requests on to a transport that never meets a fault: the library's side is what is tested.
class ShelteredHttp final : public OruKalvix::ICryptClientHttp {
 public:
  explicit ShelteredHttp(OruKalvix::ICryptClientHttp& inner) : inner_(inner) {}

  void* QueryInterface(const char* name) override;
  std::uint32_t AddRef() override;
  std::uint32_t Release() override;
  std::int32_t SendRequest(const OruGuiBase::AnsiStr& method, const OruGuiBase::AnsiStr& url,
                           const OruGuiBase::KVMap& headers, const OruGuiBase::AnsiStr& body,
                           const OruKalvix::HttpOptions& options, OruKalvix::HttpResponse& response) override;

 private:
  OruKalvix::ICryptClientHttp& inner_;
};

/// The operations that handle files.
enum class Operation { Encrypt, Decrypt, DecryptPlain, AuditLog };
std::string NameOf(Operation operation);

/// The result of an operation.
struct Outcome {
  bool success = false;
  bool isSigned = false;
  bool isVerified = false;
  std::string error;
  std::string log;  ///< name of the merged log, where one was made
};

/// Working services, a file of a few segments and the same file protected. Tests inject faults into
/// operations on them.
class FaultScenario : public ::testing::TestWithParam<Operation> {
 protected:
  FaultScenario();

  /// Restores what each run begins with: the sources, and no target.
  void Prepare();
  /// Runs one operation with a client of its own. Its result is in "target", or in the log that it names.
  Outcome Run(Operation operation);
  /// Whether the delivered content is correct.
  bool HasResult(Operation operation, const Outcome& outcome);
  static void RemoveTemporaryFiles();
  bool HasSources() const;
  bool HasNoTemporaryFile() const { return scratch.GetTemporaryNames().empty(); }
  /// Whether the bytes open, verify and are those of the file.
  bool IsProtectedFile(const std::string& bytes);
  /// Whether decrypting the bytes delivers anything at all.
  bool Opens(const std::string& bytes);

  std::string content;
  std::string protectedBytes;
  std::string plainEnvelope;
  TestSupport::ScratchDirectory scratch;
  TestSupport::ScriptedServices script;
  ShelteredHttp http{script.http};
  // Made before any fault is set, so that only the library meets it.
  const OruGuiBase::File plain_ = scratch.File("plain");
  const OruGuiBase::File target_ = scratch.File("target");

 private:
  std::string ReadIfThere(const std::string& name) const;

  const OruGuiBase::File protected_ = scratch.File("protected");
  const OruGuiBase::File envelope_ = scratch.File("envelope");
  const OruGuiBase::Array<OruGuiBase::Val> servers_ =
      TestSupport::Strings({"https://one.example", "https://two.example"});
};

}  // namespace FaultTest
