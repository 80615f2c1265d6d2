#include "app/configwindow.h"

#include "buildconfig.h"
#include "transaction/updatestate.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QProgressDialog>

namespace Tavrinox {

void ConfigWindow::prepareSelectedDevice()
{
    if (!m_windowsSource.isAvailable() && !m_linuxSource.isAvailable()) {
        QMessageBox::warning(
            this, kBoxTitle,
            QStringLiteral("Compile pelo menos um bundle do Tavrinox antes de preparar a unidade."));
        return;
    }
    Platform::UsbDevice device;
    if (!selectedDevice(&device))
        return;
    if (!device.isUsable()) {
        QMessageBox::information(
            this, kBoxTitle,
            QStringLiteral("Monte a unidade USB no gerenciador de arquivos e atualize a lista "
                           "antes de preparar."));
        return;
    }
    const QString root = device.rootPath;
    if (!askYesNo(
            QStringLiteral("Preparar unidade USB"),
            QStringLiteral("Preparar a estrutura Tavrinox em %1?\n\nA unidade não será formatada. Arquivos "
                           "existentes do bundle Tavrinox podem ser substituídos.")
                .arg(root)))
        return;

    QProgressDialog progress(QStringLiteral("Preparando unidade USB..."), QString(), 0, 7, this);
    progress.setWindowModality(Qt::ApplicationModal);
    progress.setCancelButton(nullptr);
    progress.setMinimumDuration(0);

    const PreparationSources sources{m_windowsSource.executablePath, m_windowsSource.directory,
                                     m_linuxSource.executablePath, m_linuxSource.directory};
    const PreparationResult result =
        m_preparer.prepare(root, sources, [&progress](int step, int total, const QString &message) {
            progress.setMaximum(total);
            progress.setValue(step);
            progress.setLabelText(message);
            QCoreApplication::processEvents();
        });
    progress.setValue(progress.maximum());

    if (!result.success) {
        appendLog(QStringLiteral("Falha: %1").arg(result.message));
        QMessageBox::warning(this, kBoxTitle, result.message);
        return;
    }
    appendLog(QStringLiteral("Unidade preparada: %1").arg(root));
    QString stateError;
    if (writeUpdateState(root, QString::fromLatin1(Build::kApplicationVersion), QString(), &stateError))
        appendLog(QStringLiteral("Estado de atualização registrado: %1").arg(updateStatePath(root)));
    else
        appendLog(QStringLiteral("Aviso: %1").arg(stateError));
    QMessageBox::information(this, kBoxTitle, result.message);
}

} // namespace Tavrinox
