#include "update/ed25519.h"

#include <openssl/evp.h>

#include <memory>

namespace Tavrinox::Ed25519 {

namespace {

struct KeyFree
{
    void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
};
struct ContextFree
{
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};
using Key = std::unique_ptr<EVP_PKEY, KeyFree>;
using Context = std::unique_ptr<EVP_MD_CTX, ContextFree>;

const unsigned char *bytes(const QByteArray &array)
{
    return reinterpret_cast<const unsigned char *>(array.constData());
}

unsigned char *bytes(QByteArray &array)
{
    return reinterpret_cast<unsigned char *>(array.data());
}

} // namespace

bool generateKey(QByteArray *privateKey, QByteArray *publicKey)
{
    const Key key(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
    QByteArray seed(kPrivateKeySize, Qt::Uninitialized);
    QByteArray pub(kPublicKeySize, Qt::Uninitialized);
    size_t seedSize = size_t(seed.size());
    size_t pubSize = size_t(pub.size());
    if (!key || EVP_PKEY_get_raw_private_key(key.get(), bytes(seed), &seedSize) != 1 ||
        EVP_PKEY_get_raw_public_key(key.get(), bytes(pub), &pubSize) != 1 ||
        seedSize != size_t(kPrivateKeySize) || pubSize != size_t(kPublicKeySize))
        return false;
    *privateKey = seed;
    *publicKey = pub;
    return true;
}

QByteArray sign(const QByteArray &privateKey, const QByteArray &message)
{
    if (privateKey.size() != kPrivateKeySize)
        return {};
    const Key key(EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, bytes(privateKey),
                                               size_t(privateKey.size())));
    const Context context(EVP_MD_CTX_new());
    QByteArray signature(kSignatureSize, Qt::Uninitialized);
    size_t signatureSize = size_t(signature.size());
    // Ed25519 hashes the message itself, so no digest is named and the message goes in whole.
    if (!key || !context || EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1 ||
        EVP_DigestSign(context.get(), bytes(signature), &signatureSize, bytes(message),
                       size_t(message.size())) != 1 ||
        signatureSize != size_t(kSignatureSize))
        return {};
    return signature;
}

bool verify(const QByteArray &publicKey, const QByteArray &message, const QByteArray &signature)
{
    if (publicKey.size() != kPublicKeySize || signature.size() != kSignatureSize)
        return false;
    const Key key(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, bytes(publicKey), size_t(publicKey.size())));
    const Context context(EVP_MD_CTX_new());
    return key && context && EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
           EVP_DigestVerify(context.get(), bytes(signature), size_t(signature.size()), bytes(message),
                            size_t(message.size())) == 1;
}

} // namespace Tavrinox::Ed25519
