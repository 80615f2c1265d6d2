#include "app/configwindow.h"

#include "errortext.h"
#include "update/runningcheck.h"
#include "update/updateapply.h"

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QStorageInfo>
#include <QThreadPool>
#include <QtConcurrentRun>

namespace Tavrinox {

namespace {

// An indeterminate bar the user cannot cancel; being application-modal, it also keeps every other
// command out of reach while the task runs.
QProgressDialog *showBusyDialog(QWidget *window, const QString &label)
{
    auto *dialog = new QProgressDialog(label, QString(), 0, 0, window);
    dialog->setCancelButton(nullptr);
    dialog->setWindowModality(Qt::ApplicationModal);
    dialog->setMinimumDuration(0);
    dialog->show();
    return dialog;
}

// The handlers go on to show message boxes, whose event loops do not run deferred deletions, so the
// busy bar is hidden at once.
void dismissBusyDialog(QProgressDialog *dialog)
{
    dialog->hide();
    dialog->deleteLater();
}

// The bar moves with the download's bytes when their total is known, and is a busy bar otherwise.
void showApplyProgress(QProgressDialog *dialog, const UpdateApplyProgress &progress)
{
    constexpr int kSteps = 1000;
    dialog->setLabelText(updateApplyProgressText(progress));
    if (progress.phase != UpdateApplyPhase::Downloading || progress.total <= 0) {
        dialog->setRange(0, 0);
        return;
    }
    dialog->setRange(0, kSteps);
    dialog->setValue(int(qMin<qint64>(kSteps, progress.received * kSteps / progress.total)));
}

bool isWritableVolume(const QString &root)
{
    const QStorageInfo storage(root);
    return storage.isValid() && storage.isReady() && QFileInfo(root).isWritable();
}

} // namespace

void ConfigWindow::updateSelectedDevice()
{
    Platform::UsbDevice device;
    if (!selectedDevice(&device))
        return;
    const QString root = device.rootPath;
    if (!device.isUsable()) {
        QMessageBox::information(
            this, kBoxTitle,
            QStringLiteral("Monte a unidade USB e atualize a lista antes de verificar atualizações."));
        return;
    }
    if (!QDir(QDir(root).filePath(QStringLiteral("Tavrinox"))).exists()) {
        QMessageBox::information(
            this, kBoxTitle,
            QStringLiteral("A unidade selecionada ainda não possui uma estrutura Tavrinox preparada."));
        return;
    }
    if (!isWritableVolume(root)) {
        QMessageBox::warning(
            this, kBoxTitle,
            QStringLiteral("A unidade USB não está disponível para gravação. Monte-a com leitura e "
                           "gravação antes de atualizar."));
        return;
    }
    if (m_pendingRecoveryCount > 0) {
        QMessageBox::information(
            this, kBoxTitle,
            QStringLiteral("Aguarde a recuperação automática de atualização pendente terminar "
                           "antes de iniciar outra atualização."));
        return;
    }
    if (m_failedRecoveryRoots.contains(root)) {
        QMessageBox::warning(
            this, kBoxTitle,
            QStringLiteral("Há uma atualização pendente que não pôde ser recuperada com segurança. "
                           "Nenhuma nova atualização será iniciada para esta unidade."));
        return;
    }
    if (isTavrinoxRunning()) {
        QMessageBox::warning(
            this, kBoxTitle,
            QStringLiteral("Feche o Tavrinox antes de atualizar os bundles da unidade USB."));
        return;
    }

    setUpdateControlsEnabled(false);
    QProgressDialog *dialog = showBusyDialog(this, QStringLiteral("Consultando manifesto de atualização..."));
    auto *watcher = new QFutureWatcher<UpdateCheckResult>(this);
    connect(watcher, &QFutureWatcher<UpdateCheckResult>::finished, this, [this, watcher, dialog, root] {
        const UpdateCheckResult result = watcher->result();
        watcher->deleteLater();
        dismissBusyDialog(dialog);
        setUpdateControlsEnabled(true);

        if (!result.ok) {
            appendLog(QStringLiteral("Falha ao consultar manifesto: %1").arg(result.error));
            QMessageBox::warning(this, kBoxTitle, result.error);
            return;
        }
        const QString installed =
            result.installedVersion.isEmpty() ? QStringLiteral("desconhecida") : result.installedVersion;
        if (!result.updateAvailable) {
            appendLog(QStringLiteral("Nenhuma atualização disponível. Instalado: %1 | Remoto: %2")
                          .arg(installed, result.manifest.version));
            QMessageBox::information(
                this, kBoxTitle,
                QStringLiteral("A unidade já está atualizada.\n\nVersão instalada: %1\nVersão "
                               "disponível: %2")
                    .arg(installed, result.manifest.version));
            return;
        }
        const QString notes = result.manifest.releaseNotes.isEmpty() ? QStringLiteral("Sem notas de versão.")
                                                                     : result.manifest.releaseNotes;
        if (!askYesNo(QStringLiteral("Atualização disponível"),
                      QStringLiteral(
                          "Atualizar Tavrinox na unidade %1?\n\nVersão instalada: %2\nVersão disponível: "
                          "%3\n\n%4")
                          .arg(root, installed, result.manifest.version, notes))) {
            appendLog(QStringLiteral("Atualização cancelada pelo usuário."));
            return;
        }
        startUpdateApply(root, result.manifest);
    });
    watcher->setFuture(
        QtConcurrent::run(QThreadPool::globalInstance(),
                          [root, manifestUrl = m_updateManifestUrl, publicKey = m_updatePublicKey] {
                              return checkForUpdate(root, manifestUrl, publicKey);
                          }));
}

void ConfigWindow::startUpdateApply(const QString &root, const UpdateManifest &manifest)
{
    setUpdateControlsEnabled(false);
    QProgressDialog *dialog =
        showBusyDialog(this, QStringLiteral("Baixando, validando e aplicando atualização..."));
    auto *watcher = new QFutureWatcher<UpdateApplyResult>(this);
    connect(watcher, &QFutureWatcher<UpdateApplyResult>::finished, this, [this, watcher, dialog] {
        const UpdateApplyResult result = watcher->result();
        watcher->deleteLater();
        dismissBusyDialog(dialog);
        setUpdateControlsEnabled(true);

        if (!result.ok) {
            appendLog(QStringLiteral("Falha ao aplicar atualização: %1").arg(result.error));
            QMessageBox::warning(this, kBoxTitle, result.error);
            return;
        }
        appendLog(QStringLiteral("Unidade atualizada para Tavrinox %1.").arg(result.version));
        QMessageBox::information(
            this, kBoxTitle,
            QStringLiteral("Atualização concluída.\n\nVersão instalada: %1").arg(result.version));
    });
    // Tavrinox may have been started during the download: it is asked again before anything is written.
    const UpdateWriteGate gate = [](QString *error) {
        if (!isTavrinoxRunning())
            return true;
        setError(error, QStringLiteral("Feche o Tavrinox antes de atualizar os bundles da unidade USB."));
        return false;
    };
    // The apply reports from its own thread: each report is queued to the dialog, and the reports still
    // queued when the dialog is deleted go with it.
    const UpdateApplyProgressHandler progress = [dialog](const UpdateApplyProgress &report) {
        QMetaObject::invokeMethod(
            dialog, [dialog, report] { showApplyProgress(dialog, report); }, Qt::QueuedConnection);
    };
    watcher->setFuture(QtConcurrent::run(QThreadPool::globalInstance(), [root, manifest, gate, progress] {
        return applyUpdate(root, manifest, gate, progress);
    }));
}

} // namespace Tavrinox
