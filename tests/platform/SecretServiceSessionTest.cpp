// The session encryption against the service's side of it, computed here
// with OpenSSL as the Secret Service computes it.
#include "platform/SecretServiceSession.h"

#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>

#include <memory>
#include <optional>
#include <string>

namespace velmor {
namespace {

struct BignumFree {
  void operator()(BIGNUM* number) const { BN_free(number); }
};
using Bignum = std::unique_ptr<BIGNUM, BignumFree>;

Bignum prime() { return Bignum(BN_get_rfc2409_prime_1024(nullptr)); }

Data bytesOf(const BIGNUM* number, int length) {
  Data bytes(static_cast<std::size_t>(length));
  BN_bn2binpad(number, bytes.data(), length);
  return bytes;
}

// The service's half: a key pair, and the session key it derives.
struct ServiceSide {
  Bignum privateKey{BN_new()};
  Bignum publicKey{BN_new()};

  ServiceSide() {
    Bignum two(BN_new());
    BN_set_word(two.get(), 2);
    BN_CTX* context = BN_CTX_new();
    BN_rand_range(privateKey.get(), prime().get());
    BN_mod_exp(publicKey.get(), two.get(), privateKey.get(), prime().get(), context);
    BN_CTX_free(context);
  }

  // The shared value, padded to the group's 128 bytes as the service pads it.
  Data shared(const Data& clientPublic) const {
    Bignum client(BN_bin2bn(clientPublic.data(), static_cast<int>(clientPublic.size()), nullptr));
    Bignum value(BN_new());
    BN_CTX* context = BN_CTX_new();
    BN_mod_exp(value.get(), client.get(), privateKey.get(), prime().get(), context);
    BN_CTX_free(context);
    return bytesOf(value.get(), 128);
  }

  static Data key(const Data& shared) {
    EVP_KDF* kdf = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
    EVP_KDF_CTX* context = EVP_KDF_CTX_new(kdf);
    char digest[] = "SHA256";
    OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY,
                                          const_cast<std::uint8_t*>(shared.data()), shared.size()),
        OSSL_PARAM_construct_end()};
    Data key(16);
    EVP_KDF_derive(context, key.data(), key.size(), parameters);
    EVP_KDF_CTX_free(context);
    EVP_KDF_free(kdf);
    return key;
  }
};

Data aes128Cbc(bool encrypt, const Data& key, const Data& iv, const Data& input) {
  EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
  EVP_CipherInit_ex(context, EVP_aes_128_cbc(), nullptr, key.data(), iv.data(), encrypt);
  Data output(input.size() + 16);
  int written = 0, finished = 0;
  EVP_CipherUpdate(context, output.data(), &written, input.data(), static_cast<int>(input.size()));
  EVP_CipherFinal_ex(context, output.data() + written, &finished);
  EVP_CIPHER_CTX_free(context);
  output.resize(static_cast<std::size_t>(written) + static_cast<std::size_t>(finished));
  return output;
}

Data childBytes(GVariant* secret, std::size_t index) {
  VariantHandle child(g_variant_get_child_value(secret, index));
  gsize length = 0;
  const auto* bytes =
      static_cast<const std::uint8_t*>(g_variant_get_fixed_array(child.get(), &length, 1));
  return Data(bytes, bytes + length);
}

// The byte array OpenSession answers with.
VariantHandle byteArray(const Data& bytes) {
  return VariantHandle(g_variant_ref_sink(
      g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1)));
}

VariantHandle serviceSecret(const char* path, const Data& iv, const Data& value) {
  return VariantHandle(g_variant_ref_sink(g_variant_new(
      "(o@ay@ays)", path, g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, iv.data(), iv.size(), 1),
      g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, value.data(), value.size(), 1),
      "text/plain")));
}

// Trying service keys until the shared value starts with a zero byte (one
// in 256) pins the padding: a session that left it out would hash 127 bytes
// and disagree with the service.
TEST(SecretServiceSessionTest, AgreesOnTheServicesKeyAndSpeaksItBothWays) {
  std::optional<SecretServiceSession::KeyAgreement> agreement =
      SecretServiceSession::KeyAgreement::start();
  ASSERT_TRUE(agreement);
  ASSERT_EQ(agreement->publicKey().size(), 128u);
  const Data secret = {'s', 'e', 'c', 'r', 'e', 't', 0, 1, 2};
  const Data iv(16, 0x42);
  for (bool leadingZero : {false, true}) {
    SCOPED_TRACE(leadingZero ? "shared value with a leading zero byte" : "any shared value");
    ServiceSide service;
    for (int tries = 0; leadingZero && service.shared(agreement->publicKey())[0] != 0; ++tries) {
      ASSERT_LT(tries, 20000);
      service = ServiceSide();
    }
    const Data key = ServiceSide::key(service.shared(agreement->publicKey()));
    std::optional<SecretServiceSession> session = SecretServiceSession::agree(
        *agreement, byteArray(bytesOf(service.publicKey.get(), 128)).get(), "/session/1");
    ASSERT_TRUE(session);

    VariantHandle sent = serviceSecret("/session/1", iv, aes128Cbc(true, key, iv, secret));
    EXPECT_EQ(session->decode(sent.get()), secret);

    VariantHandle encoded = session->encode(secret, "text/plain");
    ASSERT_TRUE(encoded);
    EXPECT_STREQ(g_variant_get_type_string(encoded.get()), "(oayays)");
    const Data sentIv = childBytes(encoded.get(), 1);
    ASSERT_EQ(sentIv.size(), 16u);
    EXPECT_EQ(aes128Cbc(false, key, sentIv, childBytes(encoded.get(), 2)), secret);
    EXPECT_NE(childBytes(session->encode(secret, "text/plain").get(), 1), sentIv);  // fresh IV
  }
}

TEST(SecretServiceSessionTest, RefusesServiceKeysOutsideTheGroup) {
  std::optional<SecretServiceSession::KeyAgreement> agreement =
      SecretServiceSession::KeyAgreement::start();
  ASSERT_TRUE(agreement);
  Bignum highest(BN_dup(prime().get()));
  BN_sub_word(highest.get(), 1);
  const struct {
    const char* what;
    Data key;
  } cases[] = {
      {"empty", Data{}},
      {"zero", Data(128, 0)},
      {"one", Data{1}},
      {"p - 1", bytesOf(highest.get(), 128)},
      {"p", bytesOf(prime().get(), 128)},
      {"longer than the group", Data(129, 0xff)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_FALSE(SecretServiceSession::agree(*agreement, byteArray(c.key).get(), "/session/1"));
  }
  VariantHandle text(g_variant_ref_sink(g_variant_new_string("not bytes")));
  EXPECT_FALSE(SecretServiceSession::agree(*agreement, text.get(), "/session/1"));
}

TEST(SecretServiceSessionTest, APlainSessionSendsSecretsAsTheyAre) {
  SecretServiceSession session = SecretServiceSession::plain("/session/2");
  const Data secret = {1, 2, 3};
  VariantHandle encoded = session.encode(secret, "application/octet-stream");
  ASSERT_TRUE(encoded);
  EXPECT_EQ(childBytes(encoded.get(), 1), Data{});
  EXPECT_EQ(childBytes(encoded.get(), 2), secret);
  EXPECT_EQ(session.decode(encoded.get()), secret);
  VariantHandle wrongShape(g_variant_ref_sink(g_variant_new("(s)", "x")));
  EXPECT_FALSE(session.decode(wrongShape.get()));
}

}  // namespace
}  // namespace velmor
