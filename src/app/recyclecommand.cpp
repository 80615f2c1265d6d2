#include "app/configwindow.h"

#include "transaction/workspacerecycling.h"

#include <QMessageBox>

namespace Tavrinox {

void ConfigWindow::recycleWorkspace()
{
    QString error;
    switch (recycleWorkspaceDirectories(&error)) {
    case kWorkspaceInUse:
        QMessageBox::warning(
            this, kBoxTitle,
            QStringLiteral("Para reciclar o espaço de trabalho, bloqueie todos os cofres abertos, "
                           "feche o Tavrinox e desmonte as unidades utilizadas. Em seguida, tente "
                           "novamente."));
        break;
    case kWorkspaceRecycleFailed:
        QMessageBox::warning(this, kBoxTitle, error);
        break;
    case kWorkspaceRecycled:
        QMessageBox::information(this, kBoxTitle, QStringLiteral("Espaço de trabalho reciclado."));
        break;
    }
}

} // namespace Tavrinox
