// The signed release: a file `release.json` that holds a description and its signatures. Nothing
// else that comes with a release is trusted.
//
// It is a DSSE envelope, protocol 1.0:
//
//     {"payloadType": "application/vnd.tolvarine.release+json",
//      "payload": "<base64 of the description>",
//      "signatures": [{"keyid": "<hint>", "sig": "<base64 of r and s>"}, …]}
//
// A signature covers the pre-authentication encoding of type and payload. It is verified before the
// payload is parsed, and what is used afterwards is the bytes that were verified.

#pragma once

#include <span>
#include <string>
#include <string_view>

#include "release/public_key.h"
#include "release/release_description.h"

namespace tolvarine::updater::application {

inline constexpr std::string_view kPayloadType = "application/vnd.tolvarine.release+json";
inline constexpr std::size_t kEnvelopeByteLimit = std::size_t{24} << 20;

// "DSSEv1", then, each after one blank, the decimal length of the type, the type, the decimal length
// of the payload, and the payload.
[[nodiscard]] std::string PreAuthenticationEncoding(std::string_view type,
                                                    std::string_view payload);

struct VerifiedRelease {
  std::string envelope;            // The whole file, byte for byte.
  ReleaseDescription description;  // Parsed from the verified payload.
  std::u16string id;  // The update's id: the SHA-256 of the payload, 64 lower-case digits.
};

// Verifies an envelope. One valid signature by any of the keys counts. Throws std::runtime_error,
// with a sentence that says what is wrong, for an envelope of another form or type, for one without
// a valid signature, and for a payload that ParseDescription refuses.
[[nodiscard]] VerifiedRelease VerifyRelease(std::string envelope, std::span<const PublicKey> keys);

// Reads a file of at most kEnvelopeByteLimit bytes once and verifies it. Also throws SystemError where
// it cannot be read.
[[nodiscard]] VerifiedRelease ReadRelease(const Path& file, std::span<const PublicKey> keys);

// Reads the signed release of an update whose workspace holds it. The update's id is the SHA-256 of
// the payload that was verified when the update was prepared, so that the payload is proved without
// a key. Throws std::runtime_error for any other payload, and SystemError where it cannot be read.
[[nodiscard]] VerifiedRelease ReadReleaseOfUpdate(const Path& file, std::u16string_view update_id);

// The envelope of a payload and one raw signature of its pre-authentication encoding.
[[nodiscard]] std::string FormatEnvelope(std::string_view payload, std::string_view signature,
                                         std::string_view key_id);

}  // namespace tolvarine::updater::application
