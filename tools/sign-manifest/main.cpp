// sign-manifest: the publisher's side of signed update manifests.
//
//   sign-manifest keygen PRIVATE_KEY_FILE                  writes a new private key, prints the public key
//   sign-manifest sign PRIVATE_KEY_FILE manifest.json      prints the signature for manifest.json.sig
//   sign-manifest verify PUBLIC_KEY manifest.json manifest.json.sig
//                                                          checks a signature as the program does
//
// Keys and signatures are base64 text: the public key is what the build is configured with
// (TAVRINOX_UPDATE_PUBLIC_KEY), the private key never leaves the publisher's offline machine.

#include "update/ed25519.h"
#include "update/manifestsignature.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>

#include <cstdio>

namespace {

int fail(const QString &message)
{
    std::fprintf(stderr, "sign-manifest: %s\n", qPrintable(message));
    return 1;
}

void print(const QByteArray &line)
{
    std::fwrite(line.constData(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
}

bool readFile(const QString &path, QByteArray *content)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return false;
    *content = file.readAll();
    return true;
}

int generateKey(const QString &privateKeyPath)
{
    QByteArray privateKey;
    QByteArray publicKey;
    if (!Tavrinox::Ed25519::generateKey(&privateKey, &publicKey))
        return fail(QStringLiteral("não foi possível gerar o par de chaves."));
    // An existing key is never replaced: every drive that trusts it would refuse the next manifest.
    QFile file(privateKeyPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly))
        return fail(
            QStringLiteral("não foi possível criar a chave privada (já existe?): %1").arg(privateKeyPath));
    const QByteArray keyText = privateKey.toBase64() + '\n';
    if (!file.setPermissions(QFile::ReadOwner | QFile::WriteOwner) || file.write(keyText) != keyText.size() ||
        !file.flush()) {
        file.remove();
        return fail(QStringLiteral("não foi possível gravar a chave privada: %1").arg(privateKeyPath));
    }
    print(publicKey.toBase64());
    return 0;
}

int signManifest(const QString &privateKeyPath, const QString &manifestPath)
{
    QByteArray keyText;
    QByteArray manifest;
    if (!readFile(privateKeyPath, &keyText))
        return fail(QStringLiteral("não foi possível ler a chave privada: %1").arg(privateKeyPath));
    if (!readFile(manifestPath, &manifest))
        return fail(QStringLiteral("não foi possível ler o manifesto: %1").arg(manifestPath));
    const auto key =
        QByteArray::fromBase64Encoding(keyText.trimmed(), QByteArray::AbortOnBase64DecodingErrors);
    const QByteArray signature = key ? Tavrinox::Ed25519::sign(key.decoded, manifest) : QByteArray();
    if (signature.isEmpty())
        return fail(QStringLiteral("chave privada inválida: %1").arg(privateKeyPath));
    print(signature.toBase64());
    return 0;
}

int verifySignature(const QByteArray &publicKey, const QString &manifestPath, const QString &signaturePath)
{
    QByteArray manifest;
    QByteArray signature;
    if (!readFile(manifestPath, &manifest) || !readFile(signaturePath, &signature))
        return fail(QStringLiteral("não foi possível ler %1 ou %2.").arg(manifestPath, signaturePath));
    QString error;
    if (!Tavrinox::verifyManifestSignature(manifest, signature, publicKey, &error))
        return fail(error);
    print("Assinatura válida.");
    return 0;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments().mid(1);
    const QString command = arguments.value(0);
    if (command == QLatin1String("keygen") && arguments.size() == 2)
        return generateKey(arguments.at(1));
    if (command == QLatin1String("sign") && arguments.size() == 3)
        return signManifest(arguments.at(1), arguments.at(2));
    if (command == QLatin1String("verify") && arguments.size() == 4)
        return verifySignature(arguments.at(1).toLatin1(), arguments.at(2), arguments.at(3));
    return fail(QStringLiteral("uso: sign-manifest keygen CHAVE_PRIVADA | sign CHAVE_PRIVADA manifest.json | "
                               "verify CHAVE_PUBLICA manifest.json manifest.json.sig"));
}
