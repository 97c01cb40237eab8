// SPDX-License-Identifier: MIT
// Saves one workflow and one per-user setting over and over, alternating two versions, until
// it is killed. The test that starts it checks that every kill leaves whole files behind.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>

#include "util/FacadeAccess.h"
#include "workflow/WorkflowImp.h"

#include <QCoreApplication>
#include <QDir>

#include <cstdio>

using namespace Velmora::WorkflowCore;

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 2)
        return 2;
    const QString folder = QString::fromLocal8Bit(argv[1]);
    WorkflowManager::Initialize();
    Workflow workflow;
    WorkflowFields& fields = ImpOf(workflow)->Fields();
    fields.IsTemplate = false;
    fields.Id = QStringLiteral("Id_Crash");
    fields.Name = QStringLiteral("Crash");
    fields.SourceFile = QDir(folder).filePath(QStringLiteral("Crash.workflow"));
    for (unsigned long round = 0;; ++round)
    {
        const QChar letter = (round % 2) ? QLatin1Char('B') : QLatin1Char('A');
        fields.Description = QString(200000, letter);
        if (!workflow.Save())
            return 1;
        const QString big(100000, letter);
        workflow.SetUISetting(reinterpret_cast<const WideChar*>(u"Big"),
                              reinterpret_cast<const WideChar*>(big.utf16()));
        if (round == 0)
        {
            std::puts("saved");
            std::fflush(stdout);
        }
    }
}
