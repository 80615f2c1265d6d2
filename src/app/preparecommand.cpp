#include "app/configwindow.h"

#include "app/busydialog.h"
#include "buildconfig.h"
#include "transaction/updatestate.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QThread>

#include <atomic>
#include <memory>

namespace Tavrinox {

namespace {

const QString kMountFirst =
    QStringLiteral("Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de preparar.");

constexpr int kBarEnd = 1000;

// Shows a preparation running on another thread in the busy dialog: each step as the label's first line;
// while the bundles are copied, the megabytes done on a second line and on the bar, which fills only at
// the last step. The reports reach the dialog through its event queue. A step waits until the dialog
// shows it, so that no step's name is skipped; byte counts, which come many times a second, wait there
// one at a time and the copy goes on meanwhile.
class PreparationView
{
public:
    explicit PreparationView(BusyDialog *dialog)
        : m_dialog(dialog)
    {
        dialog->setRange(0, kBarEnd);
    }

    PreparationProgress steps()
    {
        return [this](int step, int total, const QString &message) {
            QMetaObject::invokeMethod(
                m_dialog,
                [this, step, total, message] {
                    m_step = message;
                    // Reaching the end closes the dialog before the closing text would show, as it should.
                    if (step == total)
                        m_dialog->setValue(kBarEnd);
                    m_dialog->setLabelText(message);
                },
                Qt::BlockingQueuedConnection);
        };
    }

    std::function<void(const CopyProgress &)> bytes()
    {
        return [this](const CopyProgress &progress) {
            m_done = progress.doneBytes;
            m_total = progress.totalBytes;
            if (!m_bytesQueued.exchange(true))
                QMetaObject::invokeMethod(
                    m_dialog, [this] { showBytes(); }, Qt::QueuedConnection);
        };
    }

private:
    void showBytes()
    {
        m_bytesQueued = false;
        const qint64 done = m_done;
        const qint64 total = m_total;
        m_dialog->setLabelText(
            QStringLiteral("%1\n%2 de %3 MB").arg(m_step, megabytesText(done), megabytesText(total)));
        m_dialog->setValue(total > 0 ? int((kBarEnd - 1) * done / total) : 0);
    }

    BusyDialog *m_dialog;
    QString m_step;
    std::atomic<qint64> m_done{0};
    std::atomic<qint64> m_total{0};
    std::atomic<bool> m_bytesQueued{false};
};

} // namespace

void ConfigWindow::prepareSelectedDevice()
{
    if (isBusy())
        return;
    if (!m_windowsSource.isAvailable() && !m_linuxSource.isAvailable()) {
        QMessageBox::warning(
            this, kBoxTitle,
            QStringLiteral("Compile pelo menos um bundle do Tavrinox antes de preparar a unidade."));
        return;
    }
    Platform::UsbDevice device;
    if (!selectedDevice(&device))
        return;
    if (!device.isUsable() || !isDriveInPlace(device)) {
        QMessageBox::information(this, kBoxTitle, kMountFirst);
        return;
    }
    const QString root = device.rootPath;
    if (!askYesNo(
            QStringLiteral("Preparar unidade USB"),
            QStringLiteral("Preparar a estrutura Tavrinox em %1?\n\nA unidade não será formatada. Arquivos "
                           "existentes do bundle Tavrinox podem ser substituídos.")
                .arg(root)))
        return;

    // The preparation runs on its own thread, so that the dialog keeps painting however long a file takes;
    // the dialog keeps the window's other commands away until it is over. The drive is checked again from
    // that thread before each step that writes.
    PreparationView view(beginBusy(QStringLiteral("Preparando unidade USB..."), kBarEnd));
    m_busyDialog->show();
    const PreparationSources sources{m_windowsSource.executablePath, m_windowsSource.directory,
                                     m_linuxSource.executablePath, m_linuxSource.directory};
    const Platform::DriveWriteGate gate = driveGate(device, kMountFirst);
    PreparationResult result;
    const std::unique_ptr<QThread> worker(QThread::create([&] {
        result = m_preparer.prepare(root, sources, view.steps(), gate, {view.bytes(), {}});
    }));
    // Events are served until the thread is done, even should the application be asked to quit meanwhile:
    // the thread waits on the dialog to show each step.
    bool finished = false;
    connect(worker.get(), &QThread::finished, this, [&finished] { finished = true; });
    worker->start();
    while (!finished)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    worker->wait();
    endBusy();

    if (!result.success) {
        appendLog(QStringLiteral("Falha: %1").arg(result.message));
        QMessageBox::warning(this, kBoxTitle, result.message);
        return;
    }
    appendLog(QStringLiteral("Unidade preparada: %1").arg(root));
    QString stateError;
    if (gate(&stateError) &&
        writeUpdateState(root, QString::fromLatin1(Build::kApplicationVersion), QString(), &stateError))
        appendLog(QStringLiteral("Estado de atualização registrado: %1").arg(updateStatePath(root)));
    else
        appendLog(QStringLiteral("Aviso: %1").arg(stateError));
    QMessageBox::information(this, kBoxTitle, result.message);
}

} // namespace Tavrinox
