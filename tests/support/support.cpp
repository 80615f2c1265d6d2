#include "support/support.h"

#ifdef Q_OS_LINUX
#include <sys/stat.h>
#include <sys/sysmacros.h>
#endif

namespace Fixture {

bool write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return QDir().mkpath(QFileInfo(path).absolutePath()) &&
           (path.endsWith('/') || (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size()));
}

void table(const QString &name)
{
    static QByteArrayList names; // the table keeps pointers to its column names
    qsizetype columns = 0;
    for (const QByteArray &line : read(TAVRINOX_TEST_DATA_DIR "/tables/" + name + ".txt").split('\n')) {
        const QStringList cells =
            QString(line).replace("\\n", "\n").replace("\\t", "\t").replace("\"\"", "").split(" | ");
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (!columns) {
            for (const QString &cell : cells)
                QTest::addColumn<QString>((names += cell.toUtf8()).last().constData());
            columns = cells.size();
            continue;
        }
        QTestData &data = QTest::newRow(qPrintable(cells[0]));
        for (qsizetype i = 1; i <= columns; ++i) // the last column takes the rest of the line
            data << (i < columns ? cells.value(i) : cells.mid(i).join(" | "));
    }
}

QByteArray read(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

Tree tree(const QString &root, bool hidden)
{
    Tree entries;
    QDirIterator it(root,
                    QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot |
                        (hidden ? QDir::Hidden : QDir::Filter(0)),
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo entry(it.next());
        entries[QDir(root).relativeFilePath(entry.filePath())] =
            entry.isSymLink() ? "->" + QFile::encodeName(entry.symLinkTarget())
            : entry.isDir()   ? "/"
                              : read(entry.filePath());
    }
    return entries;
}

bool run(const QString &program, const QStringList &arguments, QString *error, QString *output)
{
    QProcess process;
    process.start(program, arguments);
    const bool ok = process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit &&
                    !process.exitCode();
    if (output)
        *output = QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
    if (!ok && error)
        *error = program + ' ' + arguments.join(' ') + ": " + process.errorString() +
                 process.readAllStandardError();
    return ok;
}

bool zip(const QString &folder, const QString &zipPath, const QStringList &options)
{
    return write(QFileInfo(zipPath).path() + '/') &&
           run("bsdtar", QStringList{"--format", "zip", "-cf", zipPath, "-C", folder} + options +
                             QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
}

QString sha256(const QByteArray &bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toHex();
}

QByteArray golden(const QString &name)
{
    QByteArray text = read(TAVRINOX_TEST_DATA_DIR "/golden/" + name);
#ifdef Q_OS_WIN
    text.replace("\n", "\r\n");
#endif
    return text;
}

QByteArray json(const QString &text)
{
    return text.toUtf8().replace('\'', '"');
}

QByteArray stateFile(const QString &root)
{
    return QString(read(Tavrinox::updateStatePath(root)))
        .replace(QRegularExpression("\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ"), "TIME")
        .toUtf8();
}

QStringList packageFiles(const QByteArray &marker)
{
    return QString("windows/Tavrinox.exe windows/platforms/qwindows.dll linux/Tavrinox "
                   "linux/Tavrinox-Linux.sh linux/qt.conf "
                   "linux/lib/libssl.so.3 linux/plugins/tls/libqopensslbackend.so ")
        .append(marker == "old" ? "linux/lib/liblegacy.so" : "windows/tls/qopenssl.dll")
        .split(' ');
}

bool makeFiles(const QString &folder, const QStringList &files, const QByteArray &marker)
{
    return std::all_of(files.begin(), files.end(), [&](const QString &file) {
        return write(folder + '/' + file, marker + ' ' + file.toUtf8());
    });
}

bool makeDrive(const QString &root, const QString &version, const QByteArray &marker)
{
    return makeFiles(root + "/Tavrinox", packageFiles(marker), marker) &&
           write(root + "/Tavrinox-Windows.bat", "@echo off") &&
           write(root + "/Tavrinox-Linux.sh", "#!/bin/sh") &&
           write(root + "/Tavrinox/README.txt", "Tavrinox") && Tavrinox::writeUpdateState(root, version, {});
}

bool makeUpdateDrive(const QString &root)
{
    return makeDrive(root, "1.0.0") && makeFiles(packageRoot(root) + "/Tavrinox", packageFiles("new"), "new");
}

QString packageRoot(const QString &root)
{
    return root + "/Tavrinox/.update-20260301140509123/extracted";
}

QString liveBundles(const QString &root)
{
    QStringList kinds;
    for (const QString bundle : {"windows", "linux"}) {
        Tree files = tree(root + "/Tavrinox/" + bundle);
        files.removeIf([](Tree::iterator entry) { return *entry == "/"; });
        QString kind = files.isEmpty() ? "missing" : "mixed";
        for (const QByteArray marker : {"old", "new"}) {
            Tree expected;
            for (const QString &file : packageFiles(marker).filter(QRegularExpression('^' + bundle + '/')))
                expected[file.mid(bundle.size() + 1)] = marker + ' ' + file.toUtf8();
            kind = files == expected ? marker : kind;
        }
        kinds += kind;
    }
    return kinds.join(' ');
}

UsbDevice drive(const QString &root, const QString &label, bool mounted)
{
    return {root + "-1a2b", root, label, mounted ? root : "", "exfat", true, mounted};
}

std::unique_ptr<Tavrinox::ConfigWindow> window(const QList<UsbDevice> &drives, const QString &programDir,
                                               const QUrl &manifest, Bus **bus, bool detection)
{
    Tavrinox::ConfigWindowSetup setup{std::make_unique<Bus>(), programDir, {}, {}, manifest, {}};
    static_cast<Bus *>(setup.deviceManager.get())->drives = drives;
    if (bus)
        *bus = static_cast<Bus *>(setup.deviceManager.get());
    if (!detection)
        setup.deviceManager.reset();
    return std::make_unique<Tavrinox::ConfigWindow>(std::move(setup));
}

QStringList log(const QWidget &window)
{
    return window.findChild<QTextEdit *>()->toPlainText().split('\n');
}

void click(const QWidget &window, const QString &button)
{
    control<QPushButton>(window, button)->click();
}

bool updateEnabled(const QWidget &window)
{
    const bool enabled = control<QAction>(window, "Verificar atualizações")->isEnabled();
    if (enabled != control<QPushButton>(window, "Verificar atualizações")->isEnabled())
        qFatal("the update action and button disagree");
    return enabled;
}

Boxes::Boxes(const QStringList &answers)
    : m_answers(answers)
{
    m_timer.callOnTimeout([this] {
        auto *box = qobject_cast<QMessageBox *>(QApplication::activeModalWidget());
        if (!box || box->property("answered").toBool()) // one answered a moment ago may still be closing
            return;
        box->setProperty("answered", true);
        QStringList buttons;
        for (QAbstractButton *button : box->buttons())
            buttons += button->text().remove('&') + (button == box->defaultButton() ? "*" : "");
        shown += QString("?IWC").at(box->icon() % 4) + QString(":") +
                 (box->windowTitle() == Tavrinox::kBoxTitle ? "" : box->windowTitle() + ':') + box->text() +
                 (buttons.join("").remove('*') == "OK" ? "" : " [" + buttons.join('/') + ']');
        const QString wanted = m_answers.isEmpty() ? "OK" : m_answers.takeFirst();
        for (QAbstractButton *button : box->buttons()) {
            if (button->text().remove('&') == wanted)
                return button->click();
        }
        box->reject();
    });
    m_timer.start(10);
}

Volume::~Volume()
{
    if (!path.isEmpty())
        run("umount", {path});
    if (!m_loop.isEmpty())
        run("losetup", {"-d", m_loop});
}

// Only what the listing reads: the disk's removable flag and its link in /sys/class/block, the
// partition's folder inside the disk's with its numbers and link, the label link and the mount table
// line, written as FUSE writes its mounts (exFAT on Linux): the device named as the source, the numbers
// those of the file system the mount point lies on, so that the root checks as the volume's.
bool addUsbStick(const QString &systemRoot, int number, const QString &label, const QString &mountPoint)
{
#ifdef Q_OS_LINUX
    const QDir root(systemRoot);
    const QString disk = QStringLiteral("sd") + QChar(u'a' + number);
    const QString device =
        QStringLiteral("devices/pci0000:00/0000:00:14.0/usb1/1-%1/block/%2").arg(number).arg(disk);
    const QString partition = root.filePath("sys/" + device + "/" + disk + "1/");
    struct stat status;
    if (!write(root.filePath("sys/" + device + "/removable"), "1") ||
        !write(partition + "dev", QByteArray::number(16 * number + 1).prepend("8:")) ||
        !write(partition + "size", "60000000") || !write(partition + "partition", "1") ||
        !root.mkpath("sys/class/block") || !root.mkpath("dev/disk/by-label") ||
        !QFile::link("../../" + device, root.filePath("sys/class/block/" + disk)) ||
        !QFile::link("../../" + device + "/" + disk + "1", root.filePath("sys/class/block/" + disk + "1")) ||
        !QFile::link("../../" + disk + "1", root.filePath("dev/disk/by-label/" + label)))
        return false;
    if (mountPoint.isEmpty())
        return true;
    if (!QDir().mkpath(mountPoint) || ::stat(QFile::encodeName(mountPoint).constData(), &status) != 0)
        return false;
    const QString mountInfo = root.filePath("proc/self/mountinfo");
    const QString line = QStringLiteral("%1 1 %2:%3 / %4 rw - exfat /dev/%5 rw\n")
                             .arg(QString::number(20 + number), QString::number(major(status.st_dev)),
                                  QString::number(minor(status.st_dev)), mountPoint, disk + "1");
    return write(mountInfo, read(mountInfo) + line.toUtf8());
#else
    Q_UNUSED(systemRoot) Q_UNUSED(number) Q_UNUSED(label) Q_UNUSED(mountPoint)
    return false;
#endif
}

bool Volume::mount(const QString &type, int megabytes, QString *whyNot, const QString &at)
{
#ifdef Q_OS_LINUX
    const QString image = m_dir.filePath("image"), target = at.isEmpty() ? m_dir.filePath("mnt") : at;
    QFile file(image);
    const bool ext4 = type == "ext4";
    // Without root, mounting fails, saying why.
    if (write(target + '/') &&
        (type == "tmpfs"
             ? run("mount", {"-t", "tmpfs", "-o", QString("size=%1m").arg(megabytes), "tmpfs", target},
                   whyNot)
             : file.open(QIODevice::WriteOnly) && file.resize(qint64(megabytes) << 20) &&
                   run(ext4 ? "mkfs.ext4" : "mkfs.exfat",
                       ext4 ? QStringList{"-qFm", "0", image} : QStringList{image}, whyNot) &&
                   run("losetup", {"-f", "--show", image}, whyNot, &m_loop) &&
                   run(ext4 ? "mount" : "mount.exfat-fuse", {m_loop, target}, whyNot)))
        path = target;
    return !path.isEmpty();
#else
    *whyNot = "volumes are made on Linux only";
    return false;
#endif
}

} // namespace Fixture

bool HttpsServer::trustTestCertificateAuthority()
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    configuration.addCaCertificates(QSslCertificate::fromPath(TAVRINOX_TEST_DATA_DIR "/tls/ca.pem"));
    QSslConfiguration::setDefaultConfiguration(configuration);
    return !configuration.caCertificates().isEmpty();
}

bool HttpsServer::start()
{
    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setLocalCertificate(QSslCertificate(Fixture::read(TAVRINOX_TEST_DATA_DIR "/tls/server.pem")));
    tls.setPrivateKey(QSslKey(Fixture::read(TAVRINOX_TEST_DATA_DIR "/tls/server.key"), QSsl::Ec));
    m_core = new QObject;
    m_core->moveToThread(&m_thread);
    m_thread.start();
    const auto listen = [&] {
        auto *server = new QSslServer(m_core);
        server->setSslConfiguration(tls);
        QObject::connect(server, &QTcpServer::pendingConnectionAvailable, server,
                         [=] { serve(server->nextPendingConnection()); });
        server->listen(QHostAddress::LocalHost);
        m_port = server->serverPort();
    };
    QMetaObject::invokeMethod(m_core, listen, Qt::BlockingQueuedConnection);
    return m_port;
}

// Reads one request head, answers it as its route says, then closes.
void HttpsServer::serve(QTcpSocket *socket)
{
    QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    const auto answer = [=] {
        const QByteArray head = socket->peek(1 << 16);
        if (!head.contains("\r\n\r\n") || socket->property("answered").toBool())
            return;
        socket->setProperty("answered", true);
        QMutexLocker lock(&m_mutex);
        m_requests += head.left(head.indexOf("\r\n\r\n") + 2);
        const auto route =
            m_routes.value(QUrl::fromEncoded(head.split(' ').value(1)).path(), {404, {}, {}, 0, -1});
        QTimer::singleShot(std::get<3>(route), socket, [socket, route] {
            const auto &[status, body, location, delayMs, declaredLength] = route;
            socket->write(
                "HTTP/1.1 " + QByteArray::number(status) + (status == 404 ? " Not Found" : " OK") +
                "\r\nContent-Length: " + QByteArray::number(qMax(declaredLength, qint64(body.size()))) +
                "\r\nLocation: " + location + "\r\nConnection: close\r\n\r\n" + body);
            socket->disconnectFromHost();
        });
    };
    QObject::connect(socket, &QIODevice::readyRead, socket, answer);
    answer();
}

void HttpsServer::stop()
{
    // Sockets go on the thread that drives them; the bare core can go after the thread ends.
    if (m_core)
        QMetaObject::invokeMethod(
            m_core, [this] { qDeleteAll(m_core->children()); }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
    delete std::exchange(m_core, nullptr);
}

QUrl HttpsServer::url(const QString &path) const
{
    return QString("https://127.0.0.1:%1%2").arg(m_port).arg(path);
}

void HttpsServer::route(const QString &path, int status, const QByteArray &body, const QByteArray &location,
                        int delayMs, qint64 declaredLength)
{
    QMutexLocker lock(&m_mutex);
    m_routes[path] = {status, body, location, delayMs, declaredLength};
}

QStringList HttpsServer::requests() const
{
    QMutexLocker lock(&m_mutex);
    return m_requests;
}

// A pulled stick: the FUSE process found by its command line, "mount.exfat-fuse <device> <path>".
namespace Fixture {

qint64 fuseProcess(const QString &path, QString *device)
{
    for (const QString &process : QDir("/proc").entryList(QDir::Dirs)) {
        const QByteArrayList arguments = read("/proc/" + process + "/cmdline").split('\0');
        const qsizetype at = arguments.indexOf(QFile::encodeName(path));
        if (arguments[0].endsWith("mount.exfat-fuse") && at > 1) {
            *device = QFile::decodeName(arguments[at - 1]);
            return process.toLongLong();
        }
    }
    return 0;
}

bool remountAfterPull(const QString &path, const QString &device, QString *whyNot)
{
    // What fsck could not repair shows in the files; its exit code (1 when it repaired) tells nothing more.
    run("umount", {"-l", path});
    run("fsck.exfat", {"-y", device});
    return run("mount.exfat-fuse", {device, path}, whyNot);
}

} // namespace Fixture
