#include "app/configwindow.h"

#include "app/busydialog.h"
#include "buildconfig.h"
#include "transaction/updatestate.h"

#include <QCoreApplication>
#include <QMessageBox>

namespace Tavrinox {

namespace {

const QString kMountFirst =
    QStringLiteral("Monte a unidade USB no gerenciador de arquivos e atualize a lista antes de preparar.");

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

    BusyDialog *progress = beginBusy(QStringLiteral("Preparando unidade USB..."), 7);
    const PreparationSources sources{m_windowsSource.executablePath, m_windowsSource.directory,
                                     m_linuxSource.executablePath, m_linuxSource.directory};
    const Platform::DriveWriteGate gate = driveGate(device, kMountFirst);
    const PreparationResult result = m_preparer.prepare(
        root, sources,
        [progress](int step, int total, const QString &message) {
            progress->setMaximum(total);
            progress->setValue(step);
            progress->setLabelText(message);
            QCoreApplication::processEvents();
        },
        gate);
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
