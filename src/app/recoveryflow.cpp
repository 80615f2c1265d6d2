#include "app/configwindow.h"
#include "transaction/updaterecovery.h"

#include <QFutureWatcher>
#include <QMessageBox>
#include <QtConcurrent/QtConcurrentRun>

namespace Tavrinox {

void ConfigWindow::recoverPendingUpdateInBackground(const Platform::UsbDevice &device)
{
    const QString root = device.rootPath;
    if (!isDriveInPlace(device)) {
        appendLog(QStringLiteral("A atualização pendente em %1 não foi verificada: a unidade USB foi "
                                 "removida ou desmontada.")
                      .arg(root));
        return;
    }
    m_recoveringRoots.insert(root);
    ++m_pendingRecoveryCount;
    setUpdateControlsEnabled(false);
    appendLog(QStringLiteral("Recuperando atualização pendente em %1...").arg(root));

    auto *watcher = new QFutureWatcher<UpdateRecoveryResult>(this);
    connect(watcher, &QFutureWatcher<UpdateRecoveryResult>::finished, this, [this, watcher] {
        const UpdateRecoveryResult result = watcher->result();
        watcher->deleteLater();
        pendingUpdateRecoveryFinished(result);
    });
    watcher->setFuture(QtConcurrent::run([root] {
        UpdateRecoveryResult result;
        result.root = root;
        result.ok = recoverPendingUpdate(root, &result.message, &result.error);
        return result;
    }));
}

void ConfigWindow::pendingUpdateRecoveryFinished(const UpdateRecoveryResult &result)
{
    m_recoveringRoots.remove(result.root);
    --m_pendingRecoveryCount;
    if (m_pendingRecoveryCount == 0)
        setUpdateControlsEnabled(true);

    if (!result.ok) {
        m_failedRecoveryRoots.insert(result.root);
        appendLog(
            QStringLiteral("Atualização pendente não recuperada em %1: %2").arg(result.root, result.error));
        QMessageBox::warning(
            this, kBoxTitle,
            QStringLiteral("A recuperação automática de uma atualização pendente falhou em %1. "
                           "A unidade foi preservada e nenhuma nova atualização será iniciada."
                           "\n\n%2")
                .arg(result.root, result.error));
        return;
    }
    m_failedRecoveryRoots.remove(result.root);
    appendLog(result.message.isEmpty()
                  ? QStringLiteral("Atualização pendente verificada em %1.").arg(result.root)
                  : result.message);
}

} // namespace Tavrinox
