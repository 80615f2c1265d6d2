#include "app/configwindow.h"

#include "app/busydialog.h"
#include "errortext.h"
#include "update/runningcheck.h"
#include "update/updateapply.h"

#include <QAction>
#include <QDir>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QStorageInfo>
#include <QThreadPool>
#include <QtConcurrentRun>

namespace Tavrinox {

namespace {

const QString kDriveGone =
    QStringLiteral("A unidade USB foi removida ou desmontada. A atualização foi interrompida sem gravar mais "
                   "nada nela; monte a unidade novamente e atualize a lista antes de tentar outra vez.");

// The bar moves with the download's bytes when their total is known, and is a busy bar otherwise. The
// value goes to the bar itself: the modal dialog's setValue() runs the event loop, which could deliver
// the apply's end and delete the dialog in the middle of that call.
void showApplyProgress(QProgressDialog *dialog, const UpdateApplyProgress &progress)
{
    constexpr int kSteps = 1000;
    dialog->setLabelText(updateApplyProgressText(progress));
    if (progress.phase != UpdateApplyPhase::Downloading || progress.total <= 0) {
        dialog->setRange(0, 0);
        return;
    }
    dialog->setRange(0, kSteps);
    if (auto *bar = dialog->findChild<QProgressBar *>())
        bar->setValue(int(qMin<qint64>(kSteps, progress.received * kSteps / progress.total)));
}

bool isWritableVolume(const QString &root)
{
    const QStorageInfo storage(root);
    return storage.isValid() && storage.isReady() && QFileInfo(root).isWritable();
}

} // namespace

void ConfigWindow::updateSelectedDevice()
{
    if (isBusy())
        return;
    Platform::UsbDevice device;
    if (!selectedDevice(&device))
        return;
    const QString root = device.rootPath;
    if (!device.isUsable() || !isDriveInPlace(device)) {
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
    beginBusy(QStringLiteral("Consultando manifesto de atualização..."), 0)->show();
    auto *watcher = new QFutureWatcher<UpdateCheckResult>(this);
    connect(watcher, &QFutureWatcher<UpdateCheckResult>::finished, this, [this, watcher, device, root] {
        const UpdateCheckResult result = watcher->result();
        watcher->deleteLater();
        endBusy();
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
        startUpdateApply(device, result.manifest);
    });
    watcher->setFuture(
        QtConcurrent::run(QThreadPool::globalInstance(),
                          [root, manifestUrl = m_updateManifestUrl, publicKey = m_updatePublicKey] {
                              return checkForUpdate(root, manifestUrl, publicKey);
                          }));
}

void ConfigWindow::startUpdateApply(const Platform::UsbDevice &device, const UpdateManifest &manifest)
{
    setUpdateControlsEnabled(false);
    QProgressDialog *dialog = beginBusy(QStringLiteral("Baixando, validando e aplicando atualização..."), 0);
    dialog->show();
    auto *watcher = new QFutureWatcher<UpdateApplyResult>(this);
    connect(watcher, &QFutureWatcher<UpdateApplyResult>::finished, this, [this, watcher] {
        const UpdateApplyResult result = watcher->result();
        watcher->deleteLater();
        endBusy();
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
    // The stick may have been pulled and Tavrinox started during the download: both are asked again
    // before anything is written.
    const UpdateWriteGate gate = [driveInPlace = driveGate(device, kDriveGone)](QString *error) {
        if (!driveInPlace(error))
            return false;
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
    watcher->setFuture(
        QtConcurrent::run(QThreadPool::globalInstance(), [root = device.rootPath, manifest, gate, progress] {
            return applyUpdate(root, manifest, gate, progress);
        }));
}

} // namespace Tavrinox
