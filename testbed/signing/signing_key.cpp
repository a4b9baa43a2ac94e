#include "signing/signing_key.h"

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <stdexcept>

#include "release/describe.h"
#include "release/signed_release.h"

namespace tolvarine::updater::signing {
namespace {

void Require(bool done) {
  if (!done) throw std::runtime_error("OpenSSL failed");
}

}  // namespace

struct SigningKey::Owner {
  EVP_PKEY* key = nullptr;
};

SigningKey::SigningKey() : owner_(std::make_unique<Owner>()) {
  owner_->key = EVP_EC_gen("P-256");
  Require(owner_->key != nullptr);
}

SigningKey::~SigningKey() { EVP_PKEY_free(owner_->key); }

application::PublicKey SigningKey::PublicPart() const { return application::ParsePublicKey(Pem()); }

std::string SigningKey::Pem() const {
  BIO* const memory = BIO_new(BIO_s_mem());
  Require(memory != nullptr && PEM_write_bio_PUBKEY(memory, owner_->key) == 1);
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory, &text);
  std::string pem(text, static_cast<std::size_t>(size));
  BIO_free(memory);
  return pem;
}

std::string SigningKey::Sign(std::string_view message) const {
  EVP_MD_CTX* const context = EVP_MD_CTX_new();
  const auto* const bytes = reinterpret_cast<const unsigned char*>(message.data());
  std::size_t size = 0;
  Require(EVP_DigestSignInit(context, nullptr, EVP_sha256(), nullptr, owner_->key) == 1 &&
          EVP_DigestSign(context, nullptr, &size, bytes, message.size()) == 1);
  std::string signature(size, '\0');
  Require(EVP_DigestSign(context, reinterpret_cast<unsigned char*>(signature.data()), &size, bytes,
                         message.size()) == 1);
  signature.resize(size);
  EVP_MD_CTX_free(context);
  return signature;
}

std::string SigningKey::Envelope(std::string_view payload) const {
  using application::kPayloadType, application::PreAuthenticationEncoding;
  const std::string der = Sign(PreAuthenticationEncoding(kPayloadType, payload));
  return application::FormatEnvelope(payload, application::RawSignatureFromDer(der),
                                     application::KeyIdOf(PublicPart()));
}

}  // namespace tolvarine::updater::signing
