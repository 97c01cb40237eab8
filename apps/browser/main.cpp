// SPDX-License-Identifier: MIT
// vmworkflow-browser: browse the workflows the library finds, see their details and start them.

#include "BrowserWindow.h"

#include <VmWorkflowCore/VmWorkflowCoreVersion.h>

#include <QApplication>

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("vmworkflow-browser"));
    QApplication::setApplicationVersion(QStringLiteral(VMWORKFLOWCORE_VERSION_STRING));
    int status = 0;
    {
        VmWorkflowBrowser::BrowserWindow window;
        window.show();
        status = app.exec();
    }
    return status;
}
