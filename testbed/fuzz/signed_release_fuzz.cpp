// The signed release: its envelope and its payload, and the parsers of keys and signatures. An
// input is tried as each of them.

#include "release/signed_release.h"

#include <algorithm>
#include <array>
#include <optional>
#include <stdexcept>

#include "fuzz_text.h"
#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "release/base64.h"
#include "signing/signing_key.h"

namespace tolvarine::updater::fuzz {
namespace {

using application::ReleaseDescription;

// The result; nothing where the text is refused. Nothing but runtime_error may be thrown.
template <typename Parse>
auto Accepted(const Parse& parse) -> std::optional<decltype(parse())> {
  try {
    return parse();
  } catch (const std::runtime_error& refusal) {
    Expect("a refusal has a sentence", *refusal.what() != '\0');
    return std::nullopt;
  }
}

std::string Described(const ReleaseDescription& description) {
  std::string text = description.channel + "\n" + description.version + "\n" +
                     std::to_string(description.sequence) + "\n";
  const auto uniform = [](Path path) {
    std::ranges::replace(path, u'\\', u'/');
    return Shown(path);
  };
  for (const SourceInventoryEntry& file : description.files) {
    text += uniform(file.path) + " " + std::to_string(file.size) + " " + file.sha256 + "\n";
  }
  for (const Path& path : description.removed) text += "- " + uniform(path) + "\n";
  return text;
}

// Every row can be a row of the updater's lists.
void ExpectListable(const ReleaseDescription& description, std::string_view payload) {
  for (const SourceInventoryEntry& file : description.files) {
    SourceInventory inventory;
    Expect("a described file is plain", IsPlainPath(file.path), file.path);
    Expect("a described file can be listed",
           ParseSourceInventory(SerializeSourceInventory({file}), inventory, nullptr), payload);
  }
  for (const Path& path : description.removed) {
    ManagedDeletionList list;
    Expect("a removed file is plain", IsPlainPath(path), path);
    Expect("a removed file can be listed",
           ParseManagedDeletionList(SerializeManagedDeletionList({path}), list, nullptr), payload);
  }
}

void ExpectPayloadProperties(std::string_view payload) {
  static const signing::SigningKey key;
  static const std::array keys = {key.PublicPart()};
  const auto description = Accepted([&] { return application::ParseDescription(payload); });
  const std::string envelope = key.Envelope(payload);
  const auto verified = Accepted([&] { return application::VerifyRelease(envelope, keys); });
  ExpectSame("a signed payload is accepted where it is a description", verified.has_value(),
             description.has_value(), payload);
  if (!description) return;
  ExpectSame("what is verified is what is used", Described(verified->description),
             Described(*description), payload);
  ExpectListable(*description, payload);
  const std::string written = application::SerializeDescription(*description);
  const auto again = Accepted([&] { return application::ParseDescription(written); });
  Expect("what is written is read", again.has_value(), written);
  ExpectSame("a description is read as it was written", Described(*again), Described(*description),
             payload);
  ExpectSame("a description has one text", application::SerializeDescription(*again), written,
             payload);
}

void ExpectEnvelopeProperties(std::string_view bytes) {
  static const signing::SigningKey key;
  static const std::array keys = {key.PublicPart()};
  Expect("nobody else can sign",
         !Accepted([&] { return application::VerifyRelease(std::string(bytes), keys); }), bytes);
  const auto decoded = application::DecodeBase64(bytes);
  if (decoded) ExpectSame("base64 has one spelling", application::EncodeBase64(*decoded), bytes);
  const auto encoded = application::DecodeBase64(application::EncodeBase64(bytes));
  Expect("what is encoded is decoded", encoded && *encoded == bytes, bytes);
}

void ExpectKeyProperties(std::string_view bytes) {
  const auto signature = Accepted([&] { return application::RawSignatureFromDer(bytes); });
  if (signature) {
    ExpectSame("a signature has its size", signature->size(), application::kSignatureSize, bytes);
  }
  const auto key = Accepted([&] { return application::ParsePublicKey(bytes); });
  if (!key) return;
  Expect("a key signs nothing of itself",
         !application::VerifySignature(*key, bytes, std::string(application::kSignatureSize, 1)),
         bytes);
}

}  // namespace
}  // namespace tolvarine::updater::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolvarine::updater::fuzz;
  UseComputer();
  ExpectPayloadProperties(Bytes(data, size));
  ExpectEnvelopeProperties(Bytes(data, size));
  ExpectKeyProperties(Bytes(data, size));
  return 0;
}
