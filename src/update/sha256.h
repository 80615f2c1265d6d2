#pragma once

#include <QByteArray>
#include <QtGlobal>

struct evp_md_ctx_st;

namespace Tavrinox {

// SHA-256 fed piece by piece, as a download arrives. OpenSSL's, which uses the processor's SHA
// instructions where it has them: Qt 6.4's own needs about ten times as long for the same bytes, which
// made the hash of a large package cost more than its download.
class Sha256
{
public:
    Sha256();
    ~Sha256();
    Q_DISABLE_COPY(Sha256)

    void addData(const char *data, qsizetype size);
    // The digest of everything added, as lower-case hexadecimal text; call once, at the end.
    QString hexResult();

private:
    evp_md_ctx_st *m_context;
};

} // namespace Tavrinox
