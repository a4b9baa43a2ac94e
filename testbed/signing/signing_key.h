// A key that signs releases in tests, made anew for each run: ECDSA on P-256 with SHA-256, by
// OpenSSL.

#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "release/public_key.h"

namespace tolvarine::updater::signing {

class SigningKey {
 public:
  SigningKey();
  ~SigningKey();
  SigningKey(const SigningKey&) = delete;
  SigningKey& operator=(const SigningKey&) = delete;

  [[nodiscard]] application::PublicKey PublicPart() const;
  [[nodiscard]] std::string Pem() const;  // Of the public key.

  // The signature of a message in DER, as `openssl dgst -sha256 -sign` writes it.
  [[nodiscard]] std::string Sign(std::string_view message) const;

  // The signed release of a payload.
  [[nodiscard]] std::string Envelope(std::string_view payload) const;

 private:
  struct Owner;
  std::unique_ptr<Owner> owner_;
};

}  // namespace tolvarine::updater::signing
