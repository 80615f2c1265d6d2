// Runs one step of the update transaction on a drive, so that a crash test can kill it at will:
//   transactionchild promote <driveRoot> <packageRoot> <version> <packageSha256>
//   transactionchild recover <driveRoot>
//   transactionchild apply <driveRoot> <packageUrl> <sha256> <size>   (as version 1.1.0, from the test's
//   server)
// Exit code 0 on success, 1 on a reported failure (message on standard error), 2 on bad usage.
#include "buildconfig.h"
#include "support/httpsserver.h"
#include "transaction/bundlepromotion.h"
#include "transaction/updaterecovery.h"
#include "update/updateapply.h"

#include <QCoreApplication>
#include <QTextStream>

using namespace Tavrinox;

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationVersion(QString::fromLatin1(Build::kApplicationVersion));
    const QStringList arguments = QCoreApplication::arguments();

    QString message;
    QString error;
    bool ok = false;
    if (arguments.size() == 6 && arguments.at(1) == QLatin1String("promote")) {
        ok = promoteUpdate(arguments.at(2), arguments.at(3), arguments.at(4), arguments.at(5), &error);
    } else if (arguments.size() == 6 && arguments.at(1) == QLatin1String("apply") &&
               HttpsServer::trustTestCertificateAuthority(&error)) {
        const UpdateManifest manifest{
            "1.1.0", arguments.at(3), arguments.at(4), arguments.at(5).toLongLong(), {}, {}, {}};
        const UpdateApplyResult result = applyUpdate(arguments.at(2), manifest);
        ok = result.ok;
        error = result.error;
    } else if (arguments.size() == 3 && arguments.at(1) == QLatin1String("recover")) {
        ok = recoverPendingUpdate(arguments.at(2), &message, &error);
    } else {
        QTextStream(stderr)
            << "usage: transactionchild promote <driveRoot> <packageRoot> <version> <sha256>\n"
               "       transactionchild recover <driveRoot>\n"
               "       transactionchild apply <driveRoot> <packageUrl> <sha256> <size>\n";
        return 2;
    }
    QTextStream(stdout) << message << '\n';
    if (!ok)
        QTextStream(stderr) << error << '\n';
    return ok ? 0 : 1;
}
