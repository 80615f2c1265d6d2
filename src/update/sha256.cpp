#include "update/sha256.h"

#include <QString>

#include <openssl/evp.h>

namespace Tavrinox {

Sha256::Sha256()
    : m_context(EVP_MD_CTX_new())
{
    EVP_DigestInit_ex(m_context, EVP_sha256(), nullptr);
}

Sha256::~Sha256()
{
    EVP_MD_CTX_free(m_context);
}

void Sha256::addData(const char *data, qsizetype size)
{
    EVP_DigestUpdate(m_context, data, size_t(size));
}

QString Sha256::hexResult()
{
    QByteArray digest(EVP_MAX_MD_SIZE, Qt::Uninitialized);
    unsigned int length = 0;
    EVP_DigestFinal_ex(m_context, reinterpret_cast<unsigned char *>(digest.data()), &length);
    digest.truncate(int(length));
    return QString::fromLatin1(digest.toHex());
}

} // namespace Tavrinox
