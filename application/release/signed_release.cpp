#include "release/signed_release.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "release/base64.h"
#include "release/digest.h"
#include "release/file_bytes.h"
#include "release/strict_json.h"
#include "text/decimal.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {
namespace {

using Json = nlohmann::json;

constexpr std::size_t kDepthLimit = 3;  // The object, its array, and the objects in it.

[[noreturn]] void Refuse(const std::string& what) {
  throw std::runtime_error("The signed release is not sound: " + what + ".");
}

struct Envelope {
  std::string payload;
  std::vector<std::string> signatures{};
};

std::string Base64Member(const Json& object, const char* name) {
  if (!object.is_object() || !object.contains(name) || !object.at(name).is_string()) {
    Refuse(std::string(name) + " is missing");
  }
  std::optional<std::string> bytes = DecodeBase64(object.at(name).get_ref<const std::string&>());
  if (!bytes) Refuse(std::string(name) + " is not base64");
  return *std::move(bytes);
}

Envelope ReadEnvelope(std::string_view text) {
  if (text.size() > kEnvelopeByteLimit) Refuse("it is too large");
  Json json;
  try {
    json = ParseStrictJson(text, kDepthLimit);
  } catch (const std::runtime_error& failure) {
    Refuse(failure.what());
  }
  if (!json.is_object() || !json.contains("payloadType") ||
      json.at("payloadType") != kPayloadType) {
    Refuse("it is not of the type " + std::string(kPayloadType));
  }
  if (!json.contains("signatures") || !json.at("signatures").is_array()) {
    Refuse("it has no signatures");
  }
  Envelope envelope{.payload = Base64Member(json, "payload")};
  for (const Json& signature : json.at("signatures")) {
    envelope.signatures.push_back(Base64Member(signature, "sig"));
  }
  return envelope;
}

void AppendField(std::string& text, std::string_view field) {
  text.push_back(' ');
  AppendDecimal(text, field.size());
  text.push_back(' ');
  text.append(field);
}

}  // namespace

std::string PreAuthenticationEncoding(std::string_view type, std::string_view payload) {
  std::string text = "DSSEv1";
  AppendField(text, type);
  AppendField(text, payload);
  return text;
}

VerifiedRelease VerifyRelease(std::string envelope, std::span<const PublicKey> keys) {
  const Envelope parsed = ReadEnvelope(envelope);
  const std::string message = PreAuthenticationEncoding(kPayloadType, parsed.payload);
  const bool verified = std::ranges::any_of(parsed.signatures, [&](const std::string& signature) {
    return std::ranges::any_of(
        keys, [&](const PublicKey& key) { return VerifySignature(key, message, signature); });
  });
  if (!verified) Refuse("no signature is valid for the keys that are trusted");
  ReleaseDescription description = ParseDescription(parsed.payload);
  return {std::move(envelope), std::move(description),
          Utf16FromUtf8(Sha256OfBytes(parsed.payload))};
}

VerifiedRelease ReadRelease(const Path& file, std::span<const PublicKey> keys) {
  return VerifyRelease(ReadFileBytes(file, kEnvelopeByteLimit), keys);
}

VerifiedRelease ReadReleaseOfUpdate(const Path& file, std::u16string_view update_id) {
  std::string envelope = ReadFileBytes(file, kEnvelopeByteLimit);
  const std::string payload = ReadEnvelope(envelope).payload;
  std::u16string id = Utf16FromUtf8(Sha256OfBytes(payload));
  if (id != update_id) Refuse("it is not the one that the update was prepared from");
  ReleaseDescription description = ParseDescription(payload);
  return {std::move(envelope), std::move(description), std::move(id)};
}

std::string FormatEnvelope(std::string_view payload, std::string_view signature,
                           std::string_view key_id) {
  const Json envelope = {
      {"payloadType", kPayloadType},
      {"payload", EncodeBase64(payload)},
      {"signatures", Json::array({{{"keyid", key_id}, {"sig", EncodeBase64(signature)}}})}};
  return envelope.dump() + "\n";
}

}  // namespace tolvarine::updater::application
