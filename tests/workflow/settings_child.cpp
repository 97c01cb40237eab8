// SPDX-License-Identifier: MIT
// One run of a program that uses per-user settings: "set" stores choices for the template in the
// given file and exits; "get" prints what a later run finds.

#include <VmWorkflowCore/Workflow.h>
#include <VmWorkflowCore/WorkflowManager.h>
#include <VmWorkflowCore/WorkflowPrivate.h>

#include <QCoreApplication>

#include <cstdio>
#include <vector>

using namespace Velmora::WorkflowCore;

namespace {

const WideChar* W(const QString& text)
{
    return reinterpret_cast<const WideChar*>(text.utf16());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 3)
        return 2;
    const QString mode = QString::fromLocal8Bit(argv[1]);
    const QString file = QString::fromLocal8Bit(argv[2]);
    WorkflowManager::Initialize();
    int status = 0;
    {
        Workflow workflow;
        if (!workflow.Load(W(file), W(QString())) || !workflow.IsTemplate())
        {
            status = 1;
        }
        else if (mode == QLatin1String("set"))
        {
            workflow.SetUISetting(W(QStringLiteral("Layout")), W(QStringLiteral("Wide and tall")));
            WorkflowUIState state = WorkflowPrivate::GetUIState(&workflow);
            state.ShowIntroductionOnExecute = false;
            WorkflowPrivate::SetUIState(&workflow, state);
            // The template writes its introduction choice when it goes away, at the end of this run.
        }
        else
        {
            std::vector<WideChar> buffer(64, 0);
            workflow.GetUISetting(W(QStringLiteral("Layout")), buffer.data(), int(buffer.size()));
            const QString layout = QString::fromUtf16(reinterpret_cast<const char16_t*>(buffer.data()));
            std::printf("%s|%d\n", layout.toUtf8().constData(),
                        WorkflowPrivate::GetUIState(&workflow).ShowIntroductionOnExecute ? 1 : 0);
        }
    }
    WorkflowManager::Uninitialize();
    return status;
}
