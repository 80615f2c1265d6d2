// Draws the program's icon, background pictures and help illustrations and writes them under the
// given resources directory. The output is deterministic: running it again gives the same files.

#include "appicon.h"
#include "backgrounds.h"
#include "helpimages.h"
#include "icowriter.h"
#include "paintkit.h"

#include <QDir>
#include <QGuiApplication>
#include <QImageReader>
#include <QPair>
#include <QSet>
#include <QTextStream>

namespace {

QTextStream &err()
{
    static QTextStream stream(stderr);
    return stream;
}

// Reads the icon back through Qt's own ICO reader, which is what the program will use, and checks that
// every size is there in order.
bool verifyIcon(const QString &path, const QList<int> &sizes)
{
    QImageReader reader(path, "ico");
    if (reader.imageCount() != sizes.size()) {
        err() << path << ": Qt reads " << reader.imageCount() << " images, expected " << sizes.size()
              << Qt::endl;
        return false;
    }
    for (int i = 0; i < sizes.size(); ++i) {
        if (i > 0 && !reader.jumpToNextImage()) {
            err() << path << ": cannot move to image " << i << Qt::endl;
            return false;
        }
        const QImage image = reader.read();
        if (image.isNull() || image.width() != sizes.at(i) || image.height() != sizes.at(i)) {
            err() << path << ": image " << i << " is " << image.width() << "x" << image.height()
                  << ", expected " << sizes.at(i) << Qt::endl;
            return false;
        }
    }
    return true;
}

bool writeIcon(const QDir &resources)
{
    const QList<int> sizes = Artwork::appIconSizes();
    QList<QImage> images;
    for (int size : sizes)
        images.append(Artwork::renderAppIcon(size));
    const QString path = resources.filePath(QStringLiteral("icons/Tavrinox.ico"));
    QString error;
    if (!Artwork::writeIco(path, images, &error)) {
        err() << error << Qt::endl;
        return false;
    }
    return verifyIcon(path, sizes);
}

bool writePng(const QDir &resources, const QString &relativePath, const QImage &image)
{
    QString error;
    if (!Artwork::savePng(image, resources.filePath(relativePath), &error)) {
        err() << error << Qt::endl;
        return false;
    }
    return true;
}

// The same icon as separate PNG pictures, one per size, for desktops that look icons up by size (the
// Linux package installs them into the hicolor theme). Drawn by the same code, so they match the ICO.
bool writePngIcons(const QDir &resources)
{
    bool ok = true;
    for (int size : Artwork::appIconSizes()) {
        const QString name = QStringLiteral("icons/Tavrinox-%1.png").arg(size);
        ok = writePng(resources, name, Artwork::renderAppIcon(size)) && ok;
    }
    return ok;
}

} // namespace

int main(int argc, char **argv)
{
    // Nothing is shown on screen, so no display is needed.
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.isEmpty()) {
        err() << "usage: tavrinox-artwork <resources-dir> [icon] [backgrounds] [help] [png-icons]" << Qt::endl
              << "Writes icons/, backgrounds/ and help/pt_BR/images/ under <resources-dir>;" << Qt::endl
              << "with no group named, the first three. png-icons writes icons/Tavrinox-<size>.png."
              << Qt::endl;
        return 2;
    }
    const QDir resources(args.first());
    QSet<QString> groups(args.begin() + 1, args.end());
    if (groups.isEmpty())
        groups = {QStringLiteral("icon"), QStringLiteral("backgrounds"), QStringLiteral("help")};

    // Only the folders of the groups asked for, so that a build step writing icons leaves nothing else.
    const QList<QPair<QString, QString>> folders = {
        {QStringLiteral("icon"), QStringLiteral("icons")},
        {QStringLiteral("png-icons"), QStringLiteral("icons")},
        {QStringLiteral("backgrounds"), QStringLiteral("backgrounds")},
        {QStringLiteral("help"), QStringLiteral("help/pt_BR/images")}};
    for (const auto &[group, sub] : folders) {
        if (groups.contains(group) && !resources.mkpath(sub)) {
            err() << "cannot create " << resources.filePath(sub) << Qt::endl;
            return 1;
        }
    }

    Artwork::loadFonts();
    bool ok = true;
    if (groups.contains(QStringLiteral("icon")))
        ok = writeIcon(resources) && ok;
    if (groups.contains(QStringLiteral("png-icons")))
        ok = writePngIcons(resources) && ok;
    QImage circuit;
    if (groups.contains(QStringLiteral("backgrounds")) || groups.contains(QStringLiteral("help")))
        circuit = Artwork::renderBackgroundCircuit();
    if (groups.contains(QStringLiteral("backgrounds"))) {
        ok = writePng(resources, QStringLiteral("backgrounds/Fundo01.png"), circuit) && ok;
        ok = writePng(resources, QStringLiteral("backgrounds/Fundo02.png"),
                      Artwork::renderBackgroundShield()) &&
             ok;
    }
    if (groups.contains(QStringLiteral("help"))) {
        const QString dir = QStringLiteral("help/pt_BR/images/");
        ok = writePng(resources, dir + QStringLiteral("fluxo-uso.png"), Artwork::renderUsageFlow()) && ok;
        ok = writePng(resources, dir + QStringLiteral("gerenciador-pacotes.png"),
                      Artwork::renderManagerWindow(circuit)) &&
             ok;
        ok = writePng(resources, dir + QStringLiteral("licenca-planos.png"), Artwork::renderLicencePlans()) &&
             ok;
    }
    return ok ? 0 : 1;
}
