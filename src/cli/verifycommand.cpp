#include "cli/bundleplan.h"
#include "cli/commandline.h"
#include "cli/commands.h"
#include "cli/drivelookup.h"
#include "cli/output.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

namespace Tavrinox::Cli {

namespace {

constexpr qint64 kHashChunkSize = 1024 * 1024;

// Paths relative to the drive root, each list in path order.
struct Differences
{
    QStringList missing;
    QStringList extra;
    QStringList different;

    qsizetype count() const { return missing.size() + extra.size() + different.size(); }
};

// A pair of files to compare: the source's and the drive's copy.
struct FilePair
{
    QString drivePath; // relative to the drive root
    QString source;
    QString copy;
};

QByteArray sha256(const QString &path, ProgressBar &bar)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (QByteArray chunk = file.read(kHashChunkSize); !chunk.isEmpty(); chunk = file.read(kHashChunkSize)) {
        hash.addData(chunk);
        bar.add(chunk.size());
        bar.draw();
    }
    return file.error() == QFileDevice::NoError ? hash.result() : QByteArray();
}

// Names and sizes first; the pairs of the same size are left for the content comparison.
QList<FilePair> compareNamesAndSizes(const QString &root, const PlannedBundle &bundle,
                                     Differences *differences)
{
    const QString prefix = bundle.driveFolder + QLatin1Char('/');
    const QMap<QString, QString> onDrive = bundleFiles(QDir(root).filePath(bundle.driveFolder));
    QList<FilePair> sameSize;
    for (auto it = bundle.files.cbegin(); it != bundle.files.cend(); ++it) {
        const QString copy = onDrive.value(it.key());
        if (copy.isEmpty())
            differences->missing.append(prefix + it.key());
        else if (QFileInfo(copy).size() != QFileInfo(it.value()).size())
            differences->different.append(prefix + it.key());
        else
            sameSize.append({prefix + it.key(), it.value(), copy});
    }
    // Beside a bare executable the deployment adds files of its own: only a whole copy has no extras.
    if (bundle.copiedWhole) {
        for (auto it = onDrive.cbegin(); it != onDrive.cend(); ++it) {
            if (!bundle.files.contains(it.key()))
                differences->extra.append(prefix + it.key());
        }
    }
    return sameSize;
}

void compareContents(const QList<FilePair> &pairs, Differences *differences)
{
    qint64 total = 0;
    for (const FilePair &pair : pairs)
        total += 2 * QFileInfo(pair.source).size();
    ProgressBar bar(total);
    for (const FilePair &pair : pairs) {
        const QByteArray source = sha256(pair.source, bar);
        if (source.isEmpty() || source != sha256(pair.copy, bar))
            differences->different.append(pair.drivePath);
    }
    differences->different.sort();
}

QJsonObject differencesJson(const QString &root, bool deep, const Differences &differences)
{
    return {{QStringLiteral("root"), root},
            {QStringLiteral("deep"), deep},
            {QStringLiteral("matches"), differences.count() == 0},
            {QStringLiteral("missing"), QJsonArray::fromStringList(differences.missing)},
            {QStringLiteral("extra"), QJsonArray::fromStringList(differences.extra)},
            {QStringLiteral("different"), QJsonArray::fromStringList(differences.different)}};
}

void printDifferences(const Differences &differences)
{
    for (const QString &path : differences.missing)
        printResult(QStringLiteral("Ausente: %1").arg(path));
    for (const QString &path : differences.extra)
        printResult(QStringLiteral("Extra: %1").arg(path));
    for (const QString &path : differences.different)
        printResult(QStringLiteral("Diferente: %1").arg(path));
    printResult(differences.count() == 0
                    ? QStringLiteral("Os bundles da unidade conferem com as fontes de preparação.")
                    : QStringLiteral("%1 diferença(s) entre a unidade e as fontes de preparação.")
                          .arg(differences.count()));
}

} // namespace

int verifyDrive(const CommandLine &line)
{
    Platform::UsbDevice drive;
    if (const int code = resolveOneDrive(
            line.drives, QStringLiteral("A unidade USB não está montada. Monte-a e tente novamente."), true,
            &drive))
        return code;
    const QString root = drive.rootPath;
    PreparationSources sources;
    if (!findPreparationSources(line, &sources))
        return kExitFailed;
    const QList<PlannedBundle> bundles = planBundles(sources);
    if (bundles.isEmpty()) {
        printNote(QStringLiteral("Nenhum bundle do Tavrinox encontrado para comparar com a unidade."));
        return kExitFailed;
    }

    Differences differences;
    QList<FilePair> sameSize;
    for (const PlannedBundle &bundle : bundles) {
        if (!bundle.copiedWhole)
            printNote(QStringLiteral("Bundle %1 montado a partir do executável: só o executável é comparado.")
                          .arg(bundle.platform));
        sameSize += compareNamesAndSizes(root, bundle, &differences);
    }
    if (line.deep)
        compareContents(sameSize, &differences);

    if (line.json)
        printJson(differencesJson(root, line.deep, differences));
    else
        printDifferences(differences);
    return differences.count() == 0 ? kExitSuccess : kExitFailed;
}

} // namespace Tavrinox::Cli
