#pragma once

// What the test programs share: the registration of test classes with the shared main, data tables,
// files and folders, bundles and drives, the window with drives attached by the test, answers to modal
// boxes, small real volumes and a real HTTPS server. It also brings in the product's headers and the Qt
// classes the tests use.

#include "app/configwindow.h"
#include "platform/windows/usbvolumes.h"
#include "prepare/bundlesource.h"
#include "prepare/capacity.h"
#include "prepare/drivepreparer.h"
#include "prepare/filecopy.h"
#include "transaction/bundlepromotion.h"
#include "transaction/updatejournal.h"
#include "transaction/updaterecovery.h"
#include "transaction/updatestate.h"
#include "transaction/workspacerecycling.h"
#include "update/httpget.h"
#include "update/runningcheck.h"
#include "update/updateapply.h"
#include "update/zipextraction.h"
#ifdef Q_OS_LINUX
#include "platform/linux/linuxdevicemanager.h"
#endif

#include <QtConcurrent>
#include <QtNetwork>
#include <QtTest>
#include <QtWidgets>

// The program's test classes, run in turn by the shared main (support/main.cpp). A file written for
// QTEST_MAIN(Class) or QTEST_GUILESS_MAIN(Class) needs only that line replaced by TAVRINOX_TEST(Class)
// and this header included. A child mode makes "program mode arguments..." run its function under a
// QCoreApplication instead of the tests.
inline QList<QPair<QString, QObject *(*)()>> testClasses;
inline QMap<QString, int (*)(const QStringList &)> childModes;
#define TAVRINOX_TEST(Class)                                                                                 \
    static const bool Class##Added =                                                                         \
        (testClasses.append({#Class, []() -> QObject * { return new Class; }}), true);
#define TAVRINOX_CHILD_MODE(name, function)                                                                  \
    static const bool function##Added = (childModes.insert(name, function), true);

namespace Fixture {

using Tree = QMap<QString, QByteArray>;
using Tavrinox::Platform::UsbDevice;

// Fills the current data table from tests/data/tables/<name>.txt: a first line naming the columns, then
// a row a line, "name | column | ...", every column a string, the last one taking the rest of the line;
// "\n" and "\t" stand for a line break and a tab, "" for an empty column; "#" starts a comment line.
void table(const QString &name);

// Writes a file, making its folders; a path ending in "/" makes a folder.
bool write(const QString &path, const QByteArray &bytes = {});
QByteArray read(const QString &path);
// Every entry below root, links not followed: a file maps to its bytes, a folder to "/", a link to
// "->" and its target. Without hidden, hidden entries are left out, as a bundle copy leaves them.
Tree tree(const QString &root, bool hidden = true);
// Runs a program to its end; false unless it exits with 0, with what it said in *error.
bool run(const QString &program, const QStringList &arguments, QString *error = nullptr,
         QString *output = nullptr);
// Zips a real folder's entries (links stay links) with bsdtar, whose options may rename entries.
bool zip(const QString &folder, const QString &zipPath, const QStringList &options = {});
QString sha256(const QByteArray &bytes);
// tests/data/golden/name as a text-mode file holds it on this system (CR LF for each LF on Windows)
QByteArray golden(const QString &name);
QByteArray json(const QString &text); // JSON written with single quotes for double ones
// The drive's state file, its time of installation replaced by "TIME".
QByteArray stateFile(const QString &root);

// The files of an update package below "Tavrinox/" (as a drive carries them). Each holds the marker and
// its own name, so a file under another name or from another copy shows; old and new packages differ
// in one file each, so a mixture shows in the list of files too.
QStringList packageFiles(const QByteArray &marker);
bool makeFiles(const QString &folder, const QStringList &files, const QByteArray &marker = "old");
// A drive as a preparation leaves it, its bundles holding marker; and a drive at 1.0.0 in the middle of
// an update to 1.1.0, with the new package extracted in a work area at packageRoot(root).
bool makeDrive(const QString &root, const QString &version, const QByteArray &marker = "old");
bool makeUpdateDrive(const QString &root);
QString packageRoot(const QString &root);
// "old", "new", "missing" or "mixed" for each of the live bundles, Windows first.
QString liveBundles(const QString &root);

// Adds a USB stick to the model of a Linux machine below systemRoot: the sysfs entries, the mount table
// line and the udev label link that drive listing reads. Pointed at that folder (TAVRINOX_SYSTEM_ROOT),
// the real programs list the stick as /dev/sd<b...>1 (number 1 to 20), mounted at mountPoint, a real
// folder (made when missing), or not mounted when that is empty.
bool addUsbStick(const QString &systemRoot, int number, const QString &label, const QString &mountPoint);

// Stands in for the USB bus: the test decides which drives are attached.
struct Bus : Tavrinox::Platform::DeviceManager
{
    QList<UsbDevice> listUsbDevices() const override { return drives; }
    // A test's drive is a folder, where it was listed until the test says the drives were unmounted.
    bool isVolumeAtRoot(const UsbDevice &) const override { return !unmounted; }
    QList<UsbDevice> drives;
    std::atomic<bool> unmounted{false}; // read on the workers' threads
};
// A drive mounted at root (given with its trailing slash), or an unmounted one at a device path.
UsbDevice drive(const QString &root, const QString &label = "PENDRIVE", bool mounted = true);
// A window taking bundles from programDir only, seeing the drives on a bus (or, without detection, none).
std::unique_ptr<Tavrinox::ConfigWindow> window(const QList<UsbDevice> &drives, const QString &programDir = {},
                                               const QUrl &manifest = {}, Bus **bus = nullptr,
                                               bool detection = true);
QStringList log(const QWidget &window);
template<typename Control> Control *control(const QWidget &parent, const QString &text)
{
    const QList<Control *> all = parent.findChildren<Control *>();
    return all.value(std::find_if(all.begin(), all.end(), [&](Control *c) { return c->text() == text; }) -
                     all.begin());
}
void click(const QWidget &window, const QString &button);
bool updateEnabled(const QWidget &window); // the update action and button, which must agree

// Answers every modal message box with the next queued button ("OK" once none is left) and records it
// as "<icon>:<text>", icon I, W, C or ?; a title other than the window's goes before the text, and
// buttons other than a single OK after it: "?:Title:text [Sim/Não*]" (* the default).
class Boxes : public QObject
{
public:
    explicit Boxes(const QStringList &answers = {});
    QStringList shown;

private:
    QStringList m_answers;
    QTimer m_timer;
};

// A small real volume, "exfat" (through FUSE, like a USB stick on Linux), "ext4" or "tmpfs", unmounted
// on destruction. Needs root: mount() says why it cannot, for the test to skip saying so.
class Volume
{
public:
    ~Volume();
    bool mount(const QString &type, int megabytes, QString *whyNot, const QString &at = {});
    QString path;

private:
    QTemporaryDir m_dir;
    QString m_loop;
};

} // namespace Fixture

// A real HTTPS server on 127.0.0.1, running on its own thread so that the test may block its own while
// the code under test talks to it. Unknown paths answer 404; every answer closes its connection.
// trustTestCertificateAuthority() adds the test CA to the default TLS configuration, which every later
// request copies. A route's declared length larger than its body announces that length, sends the body
// and closes.
class HttpsServer
{
public:
    ~HttpsServer() { stop(); }
    static bool trustTestCertificateAuthority();
    bool start();
    void stop(); // listeners, connections and pending answers are gone when it returns
    QUrl url(const QString &path) const;
    void route(const QString &path, int status, const QByteArray &body = {}, const QByteArray &location = {},
               int delayMs = 0, qint64 declaredLength = -1);
    QStringList requests() const; // the head of each so far, each line ending in CR LF

private:
    void serve(class QTcpSocket *socket);
    mutable QMutex m_mutex;
    QHash<QString, std::tuple<int, QByteArray, QByteArray, int, qint64>> m_routes; // as route() takes them
    QStringList m_requests;
    QThread m_thread;
    QObject *m_core = nullptr;
    quint16 m_port = 0;
};

// A pulled stick, for an exFAT volume mounted through FUSE at path: the FUSE process serving it (0 when
// none) and its device; once that process is killed, the volume checked with fsck.exfat and mounted there
// again, as when the stick is plugged back in.
namespace Fixture {
qint64 fuseProcess(const QString &path, QString *device);
bool remountAfterPull(const QString &path, const QString &device, QString *whyNot);
} // namespace Fixture
